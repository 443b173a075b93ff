#include "tools/ctl/report.h"

#include <nlohmann/json.hpp>

namespace kalix::ctl {
namespace {

using json = nlohmann::ordered_json;

json object_of(const record& fields)
{
    json object = json::object();
    for (const field& each : fields)
        std::visit([&](const auto& content) { object[each.name] = content; }, each.content);
    return object;
}

} // namespace

std::string as_json(const report& what)
{
    json all = object_of(what.head);
    for (const table& each : what.tables) {
        json rows = json::array();
        for (const record& row : each.rows)
            rows.push_back(object_of(row));
        all[each.name] = std::move(rows);
    }
    return all.dump(2) + "\n";
}

} // namespace kalix::ctl

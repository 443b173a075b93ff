#include "tools/ctl/report.h"

#include <nlohmann/json.hpp>

namespace kalix::ctl {
namespace {

using json = nlohmann::ordered_json;

struct maker {
    json operator()(const extent& of) const { return {{"width", of.width}, {"height", of.height}}; }
    json operator()(const box& of) const { return {{"width", of.width}, {"height", of.height}, {"depth", of.depth}}; }
    json operator()(const rectangle& of) const
    {
        return {{"x", of.x}, {"y", of.y}, {"width", of.width}, {"height", of.height}};
    }
    json operator()(const pixel& of) const { return of.word; }
    json operator()(const octets& of) const { return of.bytes; }
    json operator()(unknown) const { return nullptr; }
    json operator()(const auto& as_it_is) const { return as_it_is; }
};

json object_of(const record& fields)
{
    json object = json::object();
    for (const field& each : fields)
        object[each.name] = std::visit(maker{}, each.content);
    return object;
}

// Texts may hold what is no UTF-8, as a file's name.
std::string text_of(const json& object, int indent)
{
    return object.dump(indent, ' ', false, json::error_handler_t::replace) + "\n";
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
    return text_of(all, 2);
}

std::string as_json_line(const record& what)
{
    return text_of(object_of(what), -1);
}

} // namespace kalix::ctl

#include "tools/view/remote.h"

#include "tools/view/password.h"
#include "tools/view/viewer_listener.h"
#include "tools/view/vnc.h"
#include "tools/view/web_door.h"

#include <iostream>
#include <memory>

namespace kalix::view {
namespace {

std::unique_ptr<viewer_door> open_door(const view_options& options)
{
    if (options.door == remote_door::path)
        return std::make_unique<viewer_listener>(viewer_listener::on_path(
            options.socket_path.empty() ? options.run_directory + "/vnc" : options.socket_path));
    if (options.door == remote_door::port)
        return std::make_unique<viewer_listener>(viewer_listener::on_port(options.address, options.port));
    web_pages pages{options.pages};
    viewer_listener listener = viewer_listener::on_port(options.address, options.port);
    if (!listener.is_local())
        std::cerr << "kalix-view: " << listener.name()
                  << " is reached from other machines, and the picture travels there unencrypted\n";
    return std::make_unique<web_door>(std::move(listener), std::move(pages));
}

// What to open in a browser. Behind the #, so that it is not sent and gets into no log, stands what the page is to do.
std::string address_of(const viewer_door& door, const view_options& options, const std::string& password)
{
    return "http://" + door.name() + std::string{web_pages::first} + "#autoconnect=true&resize=scale" +
           (options.control ? "" : "&view_only=true") + (options.password_file.empty() ? "&password=" + password : "");
}

std::string password_for(const view_options& options)
{
    if (!options.password_file.empty())
        return read_password(options.password_file);
    // Any page that a browser has open may connect to any port of this machine, so that its loopback interface keeps
    // nobody out.
    return options.door == remote_door::web ? make_password() : "";
}

} // namespace

int serve_remote(const view_options& options)
{
    const std::string password = password_for(options);
    const std::unique_ptr<viewer_door> door = open_door(options);
    std::string announcement = "kalix-view: serving " + door->name() + (options.control ? "" : ", view-only") + "\n";
    if (options.door == remote_door::web)
        announcement += "kalix-view: open " + address_of(*door, options, password) + "\n";
    return serve_vnc(options, *door, password, announcement);
}

} // namespace kalix::view

#include "tools/view/password.h"

#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <sys/random.h>
#include <system_error>

namespace kalix::view {

std::string read_password(const std::string& file)
{
    std::ifstream from{file};
    if (!from)
        throw std::system_error{errno, std::generic_category(), "read " + file};
    std::string line;
    std::getline(from, line);
    if (line.ends_with('\r'))
        line.pop_back();
    if (line.empty() || line.size() > password_bytes_most)
        throw std::runtime_error{"the first line of " + file + " is no VNC password, which has 1 to " +
                                 std::to_string(password_bytes_most) + " bytes"};
    return line;
}

std::string make_password()
{
    // 56 signs that a URL holds as they are and that nobody reads for another.
    constexpr std::string_view signs = "abcdefghijkmnpqrstuvwxyzABCDEFGHJKLMNPQRSTUVWXYZ23456789";
    constexpr unsigned fair = 256 / signs.size() * signs.size(); // above it the first signs would come more often
    std::string password;
    while (password.size() < password_bytes_most) {
        unsigned char byte = 0;
        if (getrandom(&byte, 1, 0) != 1)
            throw std::system_error{errno, std::generic_category(), "make a password"};
        if (byte < fair)
            password += signs[byte % signs.size()];
    }
    return password;
}

} // namespace kalix::view

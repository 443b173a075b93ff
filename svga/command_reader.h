// The words of a command, as a value that can only shrink: for whoever verifies commands and whoever executes them.
//
// What is taken is copied out before anything looks at it: the ring is memory that others write. A handler that takes
// all it needs and works on its copies cannot be told two different things. Copied by value: a handler's reader is its
// own. Lists allocate and may throw std::bad_alloc, which the tables' callers catch.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>
#include <vector>

namespace kalix {

class command_reader {
public:
    explicit command_reader(std::span<const std::byte> rest) : rest_{rest} {}

    size_t left() const { return rest_.size(); }
    const std::byte* position() const { return rest_.data(); } // of what is taken next

    // The next record; false, and nothing taken, when less is left.
    template <typename record>
    [[nodiscard]] bool take(record& out)
    {
        static_assert(std::is_trivially_copyable_v<record>);
        if (rest_.size() < sizeof out)
            return false;
        std::memcpy(&out, rest_.data(), sizeof out);
        rest_ = rest_.subspan(sizeof out);
        return true;
    }

    // The next count records; false, and nothing taken, when fewer are left.
    template <typename record>
    [[nodiscard]] bool take_list(std::vector<record>& out, size_t count)
    {
        static_assert(std::is_trivially_copyable_v<record>);
        if (count > rest_.size() / sizeof(record))
            return false;
        out.resize(count);
        if (count != 0)
            std::memcpy(out.data(), rest_.data(), count * sizeof(record));
        rest_ = rest_.subspan(count * sizeof(record));
        return true;
    }

    // All that is left, as records; false when it is not a whole number of them.
    template <typename record>
    [[nodiscard]] bool take_rest(std::vector<record>& out)
    {
        return rest_.size() % sizeof(record) == 0 && take_list(out, rest_.size() / sizeof(record));
    }

private:
    std::span<const std::byte> rest_;
};

} // namespace kalix

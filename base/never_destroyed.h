// What lives from its first use to the process's end and is never destroyed, since threads may use it to the last.
//
// A function's static variable of this type needs no memory beyond the program's own.
#pragma once

#include <cstddef>
#include <new>

namespace kalix {

template <typename record>
class never_destroyed {
public:
    never_destroyed() { new (memory_) record; }
    never_destroyed(const never_destroyed&) = delete;
    never_destroyed& operator=(const never_destroyed&) = delete;

    record& operator*() { return *std::launder(reinterpret_cast<record*>(memory_)); }

private:
    alignas(record) std::byte memory_[sizeof(record)];
};

} // namespace kalix

// The text of a published object: attribute lines, and how written ones are merged into it.
#pragma once

#include <string>
#include <string_view>

namespace kalix::platform {

// The name of an attribute line, without qualifier; empty for a line that is none.
std::string_view attribute_name(std::string_view line);

// A line without the qualifier, say "[-n]", before its name.
std::string_view without_qualifier(std::string_view line);

// What an object of that name holds after lines were written: its name's line, the attributes that it
// held, each once, replaced where written holds one of the same name, and then the new ones. Lines that are
// no attributes are left out.
std::string merge_attributes(std::string_view object, std::string_view held, std::string_view written);

} // namespace kalix::platform

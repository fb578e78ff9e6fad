// Names of users as access lists look for them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace brynd {

// A name in the form in which lists compare it, canonical; one that is no name stays as it is.
std::string ComparedName(std::string_view name);

// The user's name, then the wildcards that take it in, the narrowest first: CN=Jo/OU=Dev/O=Acme,
// */OU=Dev/O=Acme, */O=Acme. None for a user without a name.
std::vector<std::string> NamesOfUser(std::string_view user);

}  // namespace brynd

// Work in a child process, so that a crash is a result and not the end of the test program.
#ifndef KIT_CHILD_H
#define KIT_CHILD_H

#include <functional>
#include <string>

namespace kit {

// What the work returned, or "crashed ..." when it did not come to its end. To be called while no engine runs
// in this process.
std::string InChild(const std::function<std::string()>& work);

}  // namespace kit

#endif

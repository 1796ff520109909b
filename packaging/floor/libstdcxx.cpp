// Functions of the C++ runtime that today's compiler calls and the runtime of the floor lacks. Each
// is what the standard says of it, in terms of what the floor has. Where the runtime has them too,
// either serves.
#define _GLIBCXX_EXTERN_TEMPLATE 0  // lets the constructors below be made here

#include <new>
#include <sstream>
#include <stdexcept>

namespace std {

template basic_stringstream<char>::basic_stringstream();
template basic_istringstream<char>::basic_istringstream();
template basic_ostringstream<char>::basic_ostringstream();
template void basic_string<char>::reserve();

runtime_error::runtime_error(runtime_error&& other) noexcept
    : runtime_error(static_cast<const runtime_error&>(other)) {}

logic_error::logic_error(logic_error&& other) noexcept
    : logic_error(static_cast<const logic_error&>(other)) {}

void __throw_bad_array_new_length() {
    throw bad_array_new_length();
}

}  // namespace std

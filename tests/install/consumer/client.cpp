// Prints the library's version, by the C++ face, and uses the variable that C++ clients alone have.
#include <kesta_unified_zrkukey.h>

#include <iostream>
#include <kesta/ukey.hpp>

int main() {
    std::cout << "version " << kesta::Library::Linked().GetDllVersion() << '\n';
    return g_WaitEventSlotMap.empty() ? 0 : 1;
}

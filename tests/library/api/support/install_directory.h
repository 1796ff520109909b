// The install directory inside the test's own namespace: what stands there can be replaced.
#ifndef KESTA_API_INSTALL_DIRECTORY_H
#define KESTA_API_INSTALL_DIRECTORY_H

#include <string>

namespace install {

constexpr const char* directory = "/opt/apps/com.zrk.uoskesta/files/bin";
constexpr const char* token_library = "/opt/apps/com.zrk.uoskesta/files/bin/libKestaZRK.so";

void RemoveTokenLibrary();
void TruncateTokenLibrary(unsigned bytes);  // cut after so many bytes
void PutTextFile();                         // a text instead of a library
void PutLibraryWithout(const std::string& entry);
void PutLibraryWithUnresolvedFunction();
// Complete; one segment of zeroes alone says that it begins far behind the file's end.
void PutLibraryWithDistantZeroes();
void PutCompleteLibrary();
// Complete but for the last byte that the loader maps, in a page that the file reaches into.
void PutLibraryCutInItsLastPage();

bool IsOpen();  // the token library, in this process
// Closes the token library as often as it is open and says how often that was. The file in the
// directory is read anew when it is opened next; while it is open, its name alone is looked at.
int CloseEntirely();

}  // namespace install

#endif

// Changes a state by SQL, as its own libraries would: with its guard. For what no command brings
// about, such as a name of a data object that no client could write.
//   softkey_state_sql FOLDER SQL
#include <cstdio>

#include "softkey/store/database.h"
#include "softkey/store/store.h"

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    try {
        const auto store = softkey::Store::Open(argv[1]);
        softkey::Transaction transaction(*store);
        store->database().Execute(argv[2]);
        transaction.Commit();
        return 0;
    } catch (const softkey::Failure& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
}

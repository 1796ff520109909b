// What a key displays. What it showed last stays on it. Not durable, not part of a transaction.
#ifndef SOFTKEY_STORE_SCREEN_H
#define SOFTKEY_STORE_SCREEN_H

#include <string>

#include "softkey/store/store.h"

namespace softkey {

class Screen {
public:
    explicit Screen(const Store& store) : store_(store) {}

    void Show(const std::string& serial, const std::string& text);  // kTooLong
    std::string Text(const std::string& serial);
    void Forget(const std::string& serial);

private:
    const Store& store_;
};

}  // namespace softkey

#endif

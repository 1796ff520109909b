// Batch_ImportX509Cert against a literal transcription of its steps, over many random texts.
#include <iterator>
#include <random>
#include <set>

#include "api_test.h"

namespace {

// ---- The steps, as they are told ----------------------------------------------------------------

std::string Upper(std::string text) {
    for (char& character : text) {
        if (character >= 'a' && character <= 'z') character = static_cast<char>(character - 32);
    }
    return text;
}

bool Accepted(const std::string& name) {
    return Upper(name) == "SIGNCERT" || Upper(name) == "ENCCERT" || Upper(name) == "ENCPRIKEY";
}

int Classify(const std::string& text) {
    std::size_t p = text.find('(');
    if (p == std::string::npos || p == 0) return 2;
    std::size_t s = 0;
    for (;;) {
        const std::string name = p < s ? "" : text.substr(s, p - s);
        if (!Accepted(name)) return 1;
        if (p + 1 > text.size()) return 3;
        const std::size_t b = text.find('|', p + 1);
        if (b == std::string::npos) return 3;
        s = b + 1;
        if (b + 2 > text.size()) return 1;
        p = text.find('(', b + 2);
        if (p == std::string::npos) return 1;
    }
}

Lines Sections(const std::string& text, const std::string& opener) {
    Lines contents;
    std::set<std::size_t> handled;
    std::size_t position = 0;
    for (;;) {
        if (position > text.size()) return contents;
        const std::size_t found = text.find(opener, position);
        if (found == std::string::npos) return contents;
        if (!handled.insert(found).second) return contents;  // never the same opener twice
        const std::size_t close = text.find(')', found);
        if (close == std::string::npos) {
            contents.emplace_back();
            position = 1;
        } else {
            const std::size_t start = found + opener.size();
            contents.push_back(text.substr(start, close - start));
            position = close + 2;
        }
    }
}

struct Import {
    int code = 0;
    Lines calls;
};

Import Expected(const std::string& bundle) {
    std::string text;
    for (const char character : bundle) {
        if (character != ',' && character != '\r' && character != '\n') text += character;
    }
    Import import;
    const int kind = Classify(text);
    if (kind == 1) import.code = -401;
    if (kind == 2) import.calls.push_back("C" + text);
    if (kind != 3) return import;
    for (const auto& [opener, mark] : {std::pair<const char*, const char*>{"SignCert(", "C"},
                                       {"EncPriKey(", "K"},
                                       {"EncCert(", "C"}}) {
        for (const std::string& content : Sections(text, opener)) {
            import.calls.push_back(mark + content);
        }
    }
    if (import.calls.empty()) import.code = -401;
    return import;
}

Import Seen(const std::string& bundle) {
    TheRecorder().Forget();
    Import import;
    import.code = Batch_ImportX509Cert("A1", bundle.c_str());
    for (const recording::Call& call : TheRecorder().Calls()) {
        // A key ends at its first NUL; none here fills the buffer.
        import.calls.push_back(call.entry == "GMImportPriKey"
                                   ? std::string("K") + call.Bytes(1).c_str()
                                   : "C" + call.Bytes(1));
    }
    return import;
}

// ---- Random texts -------------------------------------------------------------------------------

std::string RandomBundle(std::mt19937& random) {
    static const char* const pieces[] = {"SignCert(",   "EncCert(",
                                         "EncPriKey(",  "SignCert(A)|",
                                         "EncCert(B)|", "EncPriKey(K)|",
                                         "signcert(c",  "|",
                                         ")",           "(",
                                         "A",           ",",
                                         "\r\n",        "SignCert",
                                         ")|",          "Enc"};
    std::uniform_int_distribution<std::size_t> piece(0, std::size(pieces) - 1);
    std::uniform_int_distribution<int> length(0, 9);
    std::string bundle;
    for (int left = length(random); left > 0; --left) bundle += pieces[piece(random)];
    return bundle;
}

}  // namespace

TEST(RandomBundle, is_imported_as_the_steps_say) {
    std::mt19937 random(20250731);
    int withSections = 0, malformed = 0;
    for (int round = 0; round < 20000; ++round) {
        const std::string bundle = RandomBundle(random);
        const Import wanted = Expected(bundle);
        const Import found = Seen(bundle);
        ASSERT_EQ(found.code, wanted.code) << bundle;
        ASSERT_EQ(found.calls, wanted.calls) << bundle;
        withSections += wanted.calls.size() > 1;
        malformed += wanted.code != 0;
    }
    EXPECT_GT(withSections, 500) << "the texts are too poor";
    EXPECT_GT(malformed, 500) << "the texts are too poor";
}

#include "signing.h"

namespace ukey {
namespace {

struct Wish : SignWish {
    std::vector<std::string> files;
    bool lines = false;
    std::optional<std::string> warning;
};

// The lines as they stand, without their line breaks. An empty one could not be signed, and left
// out it would shift all that follow: signature n belongs to line n.
std::vector<std::string> Lines(const std::string& text, const std::string& name) {
    std::vector<std::string> lines;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        std::string line = text.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty()) {
            throw UsageError(Fill(_("line {1} of {2} is empty; there is nothing to sign in it"),
                                  {std::to_string(lines.size() + 1), name}));
        }
        lines.push_back(line);
        start = end + 1;
    }
    return lines;
}

std::vector<std::string> ListOf(const Wish& wish) {
    if (wish.files.empty()) return Lines(ReadSomething("-"), _("standard input"));
    std::vector<std::string> list;
    for (const std::string& file : wish.files) {
        const std::string content = ReadSomething(file);
        if (!wish.lines) {
            list.push_back(content);
            continue;
        }
        for (std::string& line : Lines(content, file)) list.push_back(std::move(line));
    }
    return list;
}

// Where a warning is given, the key shows it once and its button stands for all texts. The call
// wants the first text beside the list then.
kesta::BatchArguments BatchOf(const Wish& wish, std::string& warning) {
    kesta::BatchArguments batch;
    batch.list = ListOf(wish);
    batch.data = batch.list.front();
    batch.list.erase(batch.list.begin());
    batch.flags = warning.empty() ? 0 : 1;
    batch.parameter3 = wish.algorithm;
    batch.parameter4 = wish.Hash();
    batch.parameter6 = warning.data();
    batch.parameter11 = static_cast<int>(batch.list.size());
    return batch;
}

std::vector<std::string> SignThem(Session& session, const kesta::BatchArguments& batch,
                                  const std::string& warning) {
    std::optional<ButtonHint> hint;
    if (!warning.empty()) hint.emplace(session, warning);
    return session.library().Batch_Sign(batch);
}

Exit SignAll(Session& session, const Wish& wish) {
    std::string warning = wish.warning.value_or("");
    kesta::BatchArguments batch = BatchOf(wish, warning);
    const std::size_t wanted = batch.list.size() + 1;
    std::string serial = session.UnlockedSerial();
    batch.parameter2 = serial.data();
    const std::vector<std::string> signatures = SignThem(session, batch, warning);
    if (signatures.size() != wanted) {
        throw Failed({static_cast<int>(Exit::kFailed),
                      Fill(_("the key made {1} signatures of {2} texts"),
                           {std::to_string(signatures.size()), std::to_string(wanted)}),
                      "",
                      "",
                      {}});
    }
    std::string text;
    for (const std::string& signature : signatures) text += signature + "\n";
    session.GiveLines("signatures", signatures, text,
                      signatures.size() == 1 ? _("{1} signature written to {2}")
                                             : _("{1} signatures written to {2}"),
                      {{"serial", serial}});
    return Exit::kOk;
}

}  // namespace

Action BatchSign(const Options& options, Session& session) {
    const auto wish = std::make_shared<Wish>();
    AddAlgorithmOptions(options, wish->algorithm, wish->hashType);
    options.Texts("FILES", wish->files, "FILE",
                  N_("Texts to sign; without any, the lines of standard input"));
    options.Flag("--lines", wish->lines,
                 N_("Each line of a file is a text of its own; none may be empty"));
    AddWarning(options, wish->warning,
               N_("What the key shows; its button stands for all. Without it none is asked"));
    options.Examples(
        "  ukey batch-sign a.txt b.txt c.txt -w 'Sign three orders?'\n"
        "  ukey batch-sign --lines orders.txt -o signatures.txt");
    return Does(SignAll, session, wish);
}

}  // namespace ukey

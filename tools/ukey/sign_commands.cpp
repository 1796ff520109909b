// sign, sign-hash, batch-sign.
#include "commands.h"
#include "selectors.h"

namespace ukey {
namespace {

struct SignWish {
    int algorithm = 2;
    int hashType = 0;  // 0: the usual one of the algorithm
    int writing = 0;   // of a hash: 0 either, 1 hexadecimal, 2 Base64
    PinRule pin;
    std::string file;
    std::string text;
    std::string warning;
    std::vector<std::string> files;
    bool lines = false;

    int Hash() const { return HashTypeFor(algorithm, hashType); }
};
using SharedSignWish = std::shared_ptr<SignWish>;

// The text is signed as it is, line breaks included.
std::string DataOf(const SignWish& wish) {
    return wish.text.empty() ? ReadInput(wish.file.empty() ? "-" : wish.file) : wish.text;
}

Exit Sign(Session& session, const SignWish& wish) {
    const std::string data = DataOf(wish);
    if (data.empty()) throw UsageError("there is nothing to sign");
    const std::string serial = session.Serial();
    VerifyFirst(session, wish.pin, serial);
    const std::string signature =
        session.library().Sign(serial, wish.algorithm, wish.Hash(), data, wish.warning);
    GiveText(session, TextForm::kLine, "signature", signature, {{"serial", serial}});
    return Exit::kOk;
}

Exit SignHash(Session& session, const SignWish& wish) {
    const std::string hash = Trimmed(DataOf(wish));
    if (hash.empty()) throw UsageError("there is no hash to sign");
    const std::string serial = session.Serial();
    VerifyFirst(session, wish.pin, serial);
    const std::string signature =
        session.library().SignHash(serial, wish.algorithm, wish.Hash(), hash, wish.writing);
    GiveText(session, TextForm::kLine, "signature", signature, {{"serial", serial}});
    return Exit::kOk;
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        const std::string line = Trimmed(text.substr(start, end - start));
        if (!line.empty()) lines.push_back(line);
        start = end + 1;
    }
    return lines;
}

std::vector<std::string> ListOf(const SignWish& wish) {
    if (wish.files.empty()) return Lines(ReadInput("-"));
    std::vector<std::string> list;
    for (const std::string& file : wish.files) {
        const std::string content = ReadInput(file);
        if (!wish.lines) {
            list.push_back(content);
            continue;
        }
        for (std::string& line : Lines(content)) list.push_back(std::move(line));
    }
    return list;
}

// Where a warning is given, the key shows it once and its button stands for all texts. The call
// wants the first text beside the list then.
kesta::BatchArguments BatchOf(const SignWish& wish, std::string& warning) {
    kesta::BatchArguments batch;
    batch.list = ListOf(wish);
    if (batch.list.empty()) throw UsageError("there is nothing to sign");
    batch.data = batch.list.front();
    batch.list.erase(batch.list.begin());
    batch.flags = warning.empty() ? 0 : 1;
    batch.parameter3 = wish.algorithm;
    batch.parameter4 = wish.Hash();
    batch.parameter6 = warning.data();
    batch.parameter11 = static_cast<int>(batch.list.size());
    return batch;
}

Exit BatchSign(Session& session, const SignWish& wish) {
    std::string warning = wish.warning;
    kesta::BatchArguments batch = BatchOf(wish, warning);
    std::string serial = session.Serial();
    batch.parameter2 = serial.data();
    VerifyFirst(session, wish.pin, serial);
    const std::vector<std::string> signatures = session.library().Batch_Sign(batch);
    std::string text;
    for (const std::string& signature : signatures) text += signature + "\n";
    GiveLines(session, "signature", signatures, text, {{"serial", serial}});
    return Exit::kOk;
}

CLI::App* AddStep(CLI::App& app, Session& session, const std::string& name,
                  const std::string& description, const std::string& examples,
                  Exit (*step)(Session&, const SignWish&), const SharedSignWish& wish) {
    CLI::App* const command =
        AddCommand(app, session, name, description, examples, {true, true, true});
    AddAlgorithmOptions(*command, wish->algorithm, wish->hashType);
    AddPinOption(*command, wish->pin);
    command->callback([&session, step, wish] {
        session.action = [&session, step, wish] { return step(session, *wish); };
    });
    return command;
}

void AddInput(CLI::App& command, SignWish& wish, const std::string& what) {
    CLI::Option* const file =
        command.add_option("file", wish.file, what + "; standard input without it")
            ->type_name("FILE");
    command.add_option("--text", wish.text, what + ", given here")
        ->type_name("TEXT")
        ->excludes(file);
}

void AddWarning(CLI::App& command, SignWish& wish) {
    command
        .add_option("-w,--warning", wish.warning, "What the key shows before its button is pressed")
        ->type_name("TEXT");
}

}  // namespace

void AddSignCommands(CLI::App& app, Session& session) {
    auto sign = std::make_shared<SignWish>();
    CLI::App* const signCommand = AddStep(
        app, session, "sign", "Sign a text; the key shows a warning and waits for its button",
        "  ukey sign order.txt --warning 'Pay 12.50 to A. Lovelace?' -o order.sig\n"
        "  printf 'pay 12.50' | ukey sign -w 'Pay 12.50?' --json",
        Sign, sign);
    AddInput(*signCommand, *sign, "Text to sign");
    AddWarning(*signCommand, *sign);

    auto hash = std::make_shared<SignWish>();
    CLI::App* const hashCommand =
        AddStep(app, session, "sign-hash", "Sign a hash that was computed elsewhere",
                "  openssl dgst -sha256 -r order.txt | cut -d' ' -f1 |\n"
                "      ukey sign-hash --key-type rsa",
                SignHash, hash);
    AddInput(*hashCommand, *hash, "Hash to sign");
    hashCommand
        ->add_option_function<std::string>(
            "--form",
            [hash](const std::string& form) {
                hash->writing = form == "hex" ? 1 : form == "base64" ? 2 : 0;
            },
            "How the hash is written, by default either")
        ->type_name("hex|base64|either")
        ->check(CLI::IsMember({"hex", "base64", "either"}).description(""));

    auto batch = std::make_shared<SignWish>();
    CLI::App* const batchCommand =
        AddStep(app, session, "batch-sign", "Sign several texts in one call",
                "  ukey batch-sign a.txt b.txt c.txt -w 'Sign three orders?'\n"
                "  ukey batch-sign --lines orders.txt -o signatures.txt",
                BatchSign, batch);
    batchCommand
        ->add_option("files", batch->files,
                     "Texts to sign; without any, the lines of standard input")
        ->type_name("FILE");
    batchCommand->add_flag("--lines", batch->lines, "Each line of a file is a text of its own");
    AddWarning(*batchCommand, *batch);
}

namespace {

struct DecryptWish {
    Pair pair{3, 2};
    PinRule pin;
    std::string file;
};

Exit Decrypt(Session& session, const DecryptWish& wish) {
    const std::string cipher = ReadInput(wish.file.empty() ? "-" : wish.file);
    if (Trimmed(cipher).empty()) throw UsageError("there is nothing to decrypt");
    const std::string serial = session.Serial();
    VerifyFirst(session, wish.pin, serial);
    const std::string plain =
        session.library().AsymDec(serial, wish.pair.type, wish.pair.second(), cipher);
    GiveText(session, TextForm::kExact, "plain", plain, {{"serial", serial}});
    return Exit::kOk;
}

}  // namespace

void AddDecryptCommand(CLI::App& app, Session& session) {
    CLI::App* const command = AddCommand(
        app, session, "decrypt", "Decrypt a text with the key's private key",
        "  ukey decrypt cipher.txt -o letter.txt\n"
        "  openssl pkeyutl -encrypt -certin -inkey enc.cer -in letter.txt | base64 | ukey decrypt",
        {true, true, true});
    auto wish = std::make_shared<DecryptWish>();
    command->add_option("file", wish->file, "Cipher text in Base64; standard input without it")
        ->type_name("FILE");
    AddPairOptions(*command, wish->pair);
    AddPinOption(*command, wish->pin);
    command->callback([&session, wish] {
        session.action = [&session, wish] { return Decrypt(session, *wish); };
    });
}

}  // namespace ukey

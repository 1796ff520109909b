// Each allocation fails once while the kit works: a JSON value that is made, copied and written
// ends in bad_alloc, not in a crash; a help that was cut short ends in a status and a word. A
// program of its own, for the operators that it takes the place of.
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

#include "kit/console.h"
#include "kit/program.h"

namespace {

long left = 0;  // allocations until one fails; 0: none does

std::string JsonMade() {
    const std::string text(40, 'x');
    kit::Json inner = {{"type", text}, {"keyType", text}};
    inner.update({{"subject", text}, {"more", kit::Json{{"deep", text}}}});
    kit::Json all = kit::Json::array();
    all.push_back(inner);
    all.push_back(nullptr);
    return all.Text();
}

int JsonEnds() {
    const std::string usual = JsonMade();
    for (long nth = 1;; ++nth) {
        try {
            left = nth;
            const std::string text = JsonMade();
            if (left == 0) return 3;  // it failed, and nobody told
            left = 0;
            std::printf("%ld allocations\n", nth - 1);
            return text == usual && nth > 20 ? 0 : 2;
        } catch (const std::bad_alloc&) {
            left = 0;
        }
    }
}

int ShowHelp(int count, char** words) {
    static const std::vector<kit::Status> statuses = {{0, "ok", "success"}};
    static const kit::About about = {"tool", "Is of use", "1", statuses, 1,  2,
                                     1,      1,           "",  "",       "", nullptr};
    return kit::Guarded(
        about,
        [](int number, char** arguments) {
            kit::Console console;
            kit::Program program(about, console, [](const auto&, auto&) { return false; });
            bool flag = false;
            program.Add("do", "Do it", "Group").Flag("--all", flag, "Do it to all of them");
            return program.Run(number, arguments);
        },
        count, words);
}

struct Shown {
    int status;
    bool failed;
    std::string said, aside;
};

Shown HelpWith(long failing) {
    char tool[] = "tool", help[] = "help", name[] = "do";
    char* words[] = {tool, help, name, nullptr};
    char* texts[2] = {};
    std::size_t sizes[2] = {};
    FILE* const usual[] = {stdout, stderr};
    stdout = open_memstream(&texts[0], &sizes[0]);
    stderr = open_memstream(&texts[1], &sizes[1]);
    left = failing;
    const int status = ShowHelp(3, words);
    const bool failed = failing != 0 && left == 0;
    left = 0;
    std::fclose(stdout);
    std::fclose(stderr);
    stdout = usual[0];
    stderr = usual[1];
    const Shown shown = {status, failed, {texts[0], sizes[0]}, {texts[1], sizes[1]}};
    std::free(texts[0]);
    std::free(texts[1]);
    return shown;
}

int HelpEnds() {
    const Shown usual = HelpWith(0);
    if (usual.status != 0 || usual.said.find("--all") == std::string::npos) return 2;
    int wrong = 0;
    for (long nth = 1;; ++nth) {
        const Shown shown = HelpWith(nth);
        if (!shown.failed) {
            std::printf("%ld allocations\n", nth - 1);
            return wrong == 0 && nth > 100 && shown.said == usual.said ? 0 : 4;
        }
        if (shown.status == 1 && shown.aside.find("out of memory") != std::string::npos) continue;
        std::printf("allocation %ld: status %d: %s\n", nth, shown.status, shown.said.c_str());
        ++wrong;
    }
}

}  // namespace

void* operator new(std::size_t size) {
    if (left > 0 && --left == 0) {
        if (const std::new_handler told = std::get_new_handler()) told();
        throw std::bad_alloc();
    }
    return std::malloc(size);
}

void operator delete(void* block) noexcept {
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

int main(int count, char** words) {
    return count > 1 && std::string(words[1]) == "help" ? HelpEnds() : JsonEnds();
}

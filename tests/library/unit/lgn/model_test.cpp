// Random operations on a few strings, each held against a model: its text, its capacity by the
// capacity and growth rules, and with whom it shares its buffer.
#include <map>
#include <memory>
#include <random>

#include "lgn/lgn_test.h"

namespace {

int new_capacity(int characters) {
    return (characters + 8) / 8 * 8 - 1;
}

int grown_capacity(int capacity, int characters) {
    const int wanted = capacity <= 1024 ? capacity * 2 : capacity + 1024;
    return new_capacity(wanted < characters ? characters : wanted);
}

// A buffer that one or more strings of the model share. The empty text has capacity 0 and is
// always shared.
struct ModelBuffer {
    std::string text;
    int capacity = 0;
    bool nil = false;
};

class Model {
public:
    Model() : m_buffer(nil()) {}

    const std::string& text() const { return m_buffer->text; }
    int length() const { return static_cast<int>(text().size()); }
    int capacity() const { return m_buffer->capacity; }
    bool shares_with(const Model& other) const {
        return m_buffer == other.m_buffer || (m_buffer->nil && other.m_buffer->nil);
    }

    void get_buffer(int characters) { write(characters < length() ? length() : characters); }
    void set(const std::string& text) {
        if (text.empty()) {
            if (length() != 0) m_buffer = nil();
            return;
        }
        const auto size = static_cast<int>(text.size());
        write(size < length() ? length() : size);
        m_buffer->text = text;
    }
    void append(const std::string& text) {
        if (text.empty()) return;
        write(length() + static_cast<int>(text.size()));
        m_buffer->text += text;
    }
    void mid(const Model& from, int first, int count) {
        if (first == 0 && count >= from.length()) {
            *this = from;
            return;
        }
        m_buffer = std::make_shared<ModelBuffer>();
        if (first <= from.length()) {
            m_buffer->text = from.text().substr(static_cast<std::size_t>(first),
                                                static_cast<std::size_t>(count));
        }
        m_buffer->capacity = new_capacity(length());
    }
    int replace(char pattern, const std::string& replacement) {
        std::string replaced;
        int count = 0;
        for (const char c : text()) {
            count += c == pattern;
            replaced += c == pattern ? replacement : std::string(1, c);
        }
        if (count == 0) return 0;
        const auto size = static_cast<int>(replaced.size());
        write(size < length() ? length() : size);
        m_buffer->text = replaced;
        return count;
    }

private:
    static std::shared_ptr<ModelBuffer> nil() {
        auto buffer = std::make_shared<ModelBuffer>();
        buffer->nil = true;
        return buffer;
    }
    // Makes the buffer private, with room for so many characters.
    void write(int characters) {
        if (m_buffer->nil || m_buffer.use_count() > 1) {
            auto fork = std::make_shared<ModelBuffer>();
            fork->text = text();
            fork->capacity = new_capacity(characters);
            m_buffer = fork;
        } else if (capacity() < characters) {
            m_buffer->capacity = grown_capacity(capacity(), characters);
        }
    }

    std::shared_ptr<ModelBuffer> m_buffer;
};

class ModelTest : public LgnTest {
protected:
    static constexpr int kStrings = 4;

    int below(int n) { return std::uniform_int_distribution<int>(0, n - 1)(m_random); }
    std::string text() {
        const int longest = below(8) == 0 ? 3000 : 20;
        std::string result(static_cast<std::size_t>(below(longest)), ' ');
        for (char& c : result) c = static_cast<char>('a' + below(4));
        return result;
    }

    void step(int operation, int a, int b) {
        LgnString& string = strings[a];
        Model& model = models[a];
        const int at = below(models[b].length() + 1);
        const std::string fresh = text();
        switch (operation) {
            case 0:
                string.SetString(fresh.c_str());
                model.set(fresh);
                break;
            case 1:
                string = strings[b];
                model = models[b];
                break;
            case 2:
                string.GetBuffer(at * 2);
                model.get_buffer(at * 2);
                break;
            case 3: {
                const std::string part = models[a].text().substr(static_cast<std::size_t>(at) %
                                                                 (models[a].text().size() + 1));
                string.SetString(string.GetString() +
                                 (models[a].length() - static_cast<int>(part.size())));
                model.set(part);
                break;
            }
            case 4: {
                const int count = below(models[b].length() + 3);
                const Model from = models[b];
                string = strings[b].Mid(at, count);
                Model cut;
                cut.mid(from, at, count);
                model = cut;
                break;
            }
            case 5: {
                if (model.length() > 20000) break;
                const std::string by = fresh.substr(0, static_cast<std::size_t>(below(5)));
                ASSERT_EQ(string.Replace("a", by.c_str()), model.replace('a', by));
                break;
            }
            default:
                string.Append(fresh.c_str(), static_cast<int>(fresh.size()));
                model.append(fresh);
        }
    }

    void compare() {
        for (int i = 0; i < kStrings; ++i) {
            ASSERT_EQ(text_of(strings[i]), models[i].text());
            ASSERT_TRUE(is_terminated(strings[i]));
            ASSERT_EQ(capacity_of(strings[i]), models[i].capacity());
            for (int j = 0; j < kStrings; ++j) {
                ASSERT_EQ(address_of(strings[i]) == address_of(strings[j]),
                          models[i].shares_with(models[j]));
            }
        }
    }

    LgnString strings[kStrings];
    Model models[kStrings];

private:
    std::mt19937 m_random{31};
};

TEST_F(ModelTest, strings_agree_with_the_model_after_every_operation) {
    for (int round = 0; round < 20000; ++round) {
        const int operation = below(7), a = below(kStrings), b = below(kStrings);
        step(operation, a, b);
        compare();
        ASSERT_FALSE(HasFatalFailure())
            << "round " << round << ", operation " << operation << " on " << a << " and " << b;
        if (models[a].length() > 20000) {
            strings[a].Empty();
            models[a].set("");
        }
    }
}

}  // namespace

// Random operations on a few strings, each held against a model: its text, its capacity by the
// capacity and growth rules, and with whom it shares its buffer.
#include <map>
#include <memory>
#include <random>

#include "lgn/lgn_test.h"

namespace {

int NewCapacity(int characters) {
    return (characters + 8) / 8 * 8 - 1;
}

int GrownCapacity(int capacity, int characters) {
    const int wanted = capacity <= 1024 ? capacity * 2 : capacity + 1024;
    return NewCapacity(wanted < characters ? characters : wanted);
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
    Model() : buffer_(Nil()) {}

    const std::string& Text() const { return buffer_->text; }
    int Length() const { return static_cast<int>(Text().size()); }
    int Capacity() const { return buffer_->capacity; }
    bool SharesWith(const Model& other) const {
        return buffer_ == other.buffer_ || (buffer_->nil && other.buffer_->nil);
    }

    void GetBuffer(int characters) { Write(characters < Length() ? Length() : characters); }
    void Set(const std::string& text) {
        if (text.empty()) {
            if (Length() != 0) buffer_ = Nil();
            return;
        }
        const auto size = static_cast<int>(text.size());
        Write(size < Length() ? Length() : size);
        buffer_->text = text;
    }
    void append(const std::string& text) {
        if (text.empty()) return;
        Write(Length() + static_cast<int>(text.size()));
        buffer_->text += text;
    }
    void Mid(const Model& from, int first, int count) {
        if (first == 0 && count >= from.Length()) {
            *this = from;
            return;
        }
        buffer_ = std::make_shared<ModelBuffer>();
        if (first <= from.Length()) {
            buffer_->text = from.Text().substr(static_cast<std::size_t>(first),
                                               static_cast<std::size_t>(count));
        }
        buffer_->capacity = NewCapacity(Length());
    }
    int Replace(char pattern, const std::string& replacement) {
        std::string replaced;
        int count = 0;
        for (const char c : Text()) {
            count += c == pattern;
            replaced += c == pattern ? replacement : std::string(1, c);
        }
        if (count == 0) return 0;
        const auto size = static_cast<int>(replaced.size());
        Write(size < Length() ? Length() : size);
        buffer_->text = replaced;
        return count;
    }

private:
    static std::shared_ptr<ModelBuffer> Nil() {
        auto buffer = std::make_shared<ModelBuffer>();
        buffer->nil = true;
        return buffer;
    }
    // Makes the buffer private, with room for so many characters.
    void Write(int characters) {
        if (buffer_->nil || buffer_.use_count() > 1) {
            auto fork = std::make_shared<ModelBuffer>();
            fork->text = Text();
            fork->capacity = NewCapacity(characters);
            buffer_ = fork;
        } else if (Capacity() < characters) {
            buffer_->capacity = GrownCapacity(Capacity(), characters);
        }
    }

    std::shared_ptr<ModelBuffer> buffer_;
};

class ModelTest : public LgnTest {
protected:
    static constexpr int kStrings = 4;

    int Below(int n) { return std::uniform_int_distribution<int>(0, n - 1)(random_); }
    std::string Text() {
        const int longest = Below(8) == 0 ? 3000 : 20;
        std::string result(static_cast<std::size_t>(Below(longest)), ' ');
        for (char& c : result) c = static_cast<char>('a' + Below(4));
        return result;
    }

    void Step(int operation, int a, int b) {
        LgnString& string = strings[a];
        Model& model = models[a];
        const int at = Below(models[b].Length() + 1);
        const std::string fresh = Text();
        switch (operation) {
            case 0:
                string.SetString(fresh.c_str());
                model.Set(fresh);
                break;
            case 1:
                string = strings[b];
                model = models[b];
                break;
            case 2:
                string.GetBuffer(at * 2);
                model.GetBuffer(at * 2);
                break;
            case 3: {
                const std::string part = models[a].Text().substr(static_cast<std::size_t>(at) %
                                                                 (models[a].Text().size() + 1));
                string.SetString(string.GetString() +
                                 (models[a].Length() - static_cast<int>(part.size())));
                model.Set(part);
                break;
            }
            case 4: {
                const int count = Below(models[b].Length() + 3);
                const Model from = models[b];
                string = strings[b].Mid(at, count);
                Model cut;
                cut.Mid(from, at, count);
                model = cut;
                break;
            }
            case 5: {
                if (model.Length() > 20000) break;
                const std::string by = fresh.substr(0, static_cast<std::size_t>(Below(5)));
                ASSERT_EQ(string.Replace("a", by.c_str()), model.Replace('a', by));
                break;
            }
            default:
                string.Append(fresh.c_str(), static_cast<int>(fresh.size()));
                model.append(fresh);
        }
    }

    void Compare() {
        for (int i = 0; i < kStrings; ++i) {
            ASSERT_EQ(TextOf(strings[i]), models[i].Text());
            ASSERT_TRUE(IsTerminated(strings[i]));
            ASSERT_EQ(CapacityOf(strings[i]), models[i].Capacity());
            for (int j = 0; j < kStrings; ++j) {
                ASSERT_EQ(AddressOf(strings[i]) == AddressOf(strings[j]),
                          models[i].SharesWith(models[j]));
            }
        }
    }

    LgnString strings[kStrings];
    Model models[kStrings];

private:
    std::mt19937 random_{31};
};

TEST_F(ModelTest, strings_agree_with_the_model_after_every_operation) {
    for (int round = 0; round < 20000; ++round) {
        const int operation = Below(7), a = Below(kStrings), b = Below(kStrings);
        Step(operation, a, b);
        Compare();
        ASSERT_FALSE(HasFatalFailure())
            << "round " << round << ", operation " << operation << " on " << a << " and " << b;
        if (models[a].Length() > 20000) {
            strings[a].Empty();
            models[a].Set("");
        }
    }
}

}  // namespace

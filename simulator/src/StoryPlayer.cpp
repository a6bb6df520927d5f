// The player follows the journal, so a line is printed when it happens; a line that was expected is marked as it goes
// by. Entries from before a scene's act are printed but never count for the scene.
#include <algorithm>
#include <array>
#include <cstdio>

#include "Story.h"

namespace {

using std::chrono::nanoseconds;
using namespace std::chrono_literals;

/// How often the player looks for what is due without an entry.
constexpr std::chrono::milliseconds kLook{50};

constexpr const char* kPlain = "\033[0m";
constexpr const char* kBold = "\033[1m";
constexpr const char* kDim = "\033[2m";
constexpr const char* kRed = "\033[31m";
constexpr const char* kGreen = "\033[32m";

/// The service never ends by itself.
bool IsEndOfProcess(const AccountLine& line) {
    const auto has = [&](const char* part) { return line.text.find(part) != std::string::npos; };
    return line.who == Who::Unit && (has(" exited ") || has(" killed "));
}

const char* Colour(Who who) {
    switch (who) {
        case Who::Story:
            return kBold;
        case Who::Led:
            return "\033[33m";
        case Who::Relay:
        case Who::Antenna:
        case Who::Line:
            return "\033[35m";
        case Who::Rpc:
        case Who::Location:
            return "\033[36m";
        case Who::Kernel:
        case Who::Script:
        case Who::Tool:
        case Who::Unit:
            return "\033[34m";
        case Who::Trace:
            return kDim;
    }
    return "";
}

class Player {
  public:
    Player(StoryWorld& in, const Journal& from, const StoryStyle& as, const std::function<void(const std::string&)>& to)
        : world(in), journal(from), style(as), write(to) {}

    bool Play(const Story& story);

  private:
    bool PlayScene(const Scene& scene);
    void Follow(SceneJudge& judge, nanoseconds limit);
    void Show(SceneJudge& judge, const std::vector<AccountLine>& lines);
    void Complain(const Scene& scene, const SceneJudge& judge);
    std::string Paint(const char* colour, const std::string& text) const;
    std::string Row(nanoseconds time, bool met, Who who, const std::string& text) const;

    StoryWorld& world;
    const Journal& journal;
    const StoryStyle style;
    const std::function<void(const std::string&)>& write;
    Account account;
    nanoseconds origin{0};
    nanoseconds sceneStart{0};
    uint64_t next = 0;  ///< first entry that is not yet told
    size_t metCount = 0;
};

std::string Player::Paint(const char* colour, const std::string& text) const {
    return style.colour ? colour + text + kPlain : text;
}

std::string Player::Row(nanoseconds time, bool met, Who who, const std::string& text) const {
    std::array<char, 64> head{};
    std::snprintf(head.data(), head.size(), "%8.3f  ", std::chrono::duration<double>(time - origin).count());
    std::array<char, 16> name{};
    std::snprintf(name.data(), name.size(), "%-8s ", WhoName(who));
    return head.data() + Paint(kGreen, met ? "ok" : "  ") + "  " + Paint(Colour(who), name.data() + text);
}

void Player::Show(SceneJudge& judge, const std::vector<AccountLine>& lines) {
    for (const AccountLine& line : lines) {
        const bool met = line.time >= sceneStart && judge.See(line);
        metCount += met ? 1 : 0;
        write(Row(line.time, met, line.who, line.text));
    }
}

void Player::Follow(SceneJudge& judge, nanoseconds limit) {
    const auto wait = std::clamp<nanoseconds>(limit, 0ns, kLook);
    const nanoseconds now = journal.Now();  // before the look: all until then is in what it finds
    for (const Entry& entry : journal.Follow(next, std::chrono::ceil<std::chrono::milliseconds>(wait))) {
        next = entry.seq + 1;
        if (style.verbose) {
            write(Paint(kDim, "          " + entry.Print()));
        }
        Show(judge, account.Tell(entry));
    }
    Show(judge, account.Settle(now));
}

bool Player::PlayScene(const Scene& scene) {
    write("");
    write(Row(journal.Now(), false, Who::Story, scene.tell));
    SceneJudge judge(scene);
    sceneStart = journal.Now();
    if (scene.act != nullptr) {
        scene.act(world);
    }
    while (!judge.IsDone() && judge.Forbidden().empty() && journal.Now() < sceneStart + style.limit) {
        Follow(judge, kLook);
    }
    if (!judge.IsDone()) {
        Follow(judge, 0ns);  // a last look: what came in time counts, also when the player was held up
    }
    while (judge.IsDone() && judge.Forbidden().empty() && journal.Now() < sceneStart + scene.lasts) {
        Follow(judge, sceneStart + scene.lasts - journal.Now());
    }
    if (scene.lasts > 0ms) {
        Follow(judge, 0ns);  // likewise for what must not come
    }
    if (judge.IsDone() && judge.Forbidden().empty()) {
        return true;
    }
    Complain(scene, judge);
    return false;
}

void Player::Complain(const Scene& scene, const SceneJudge& judge) {
    const auto list = [&](const char* title, const auto& lines) {
        if (!lines.empty()) {
            write(Paint(kRed, title));
        }
        for (const auto& line : lines) {
            write("    " + std::string(WhoName(line.who)) + ": " + line.text);
        }
    };
    write("");
    write(Paint(kRed, "FAILED") + " in the scene \"" + scene.tell + "\"");
    list("  expected, but missing:", judge.Missing());
    list("  must not come, but came:", judge.Forbidden());
}

bool Player::Play(const Story& story) {
    origin = journal.Now();
    write(Paint(kBold, story.name) + ": " + story.about);
    write("");
    write(Paint(kDim, "  time s      who      what (ok: this line was expected)"));
    if (!std::ranges::all_of(story.scenes, [&](const Scene& scene) { return PlayScene(scene); })) {
        return false;
    }
    std::array<char, 96> end{};
    std::snprintf(end.data(), end.size(), "%zu expected lines, all seen, in %.1f s", metCount,
                  std::chrono::duration<double>(journal.Now() - origin).count());
    write("");
    write(Paint(kGreen, "PASSED") + " " + story.name + ": " + end.data());
    return true;
}

}  // namespace

bool SceneJudge::See(const AccountLine& line) {
    const auto fits = [&](const Expected& expected) {
        return expected.who == line.who && line.text.find(expected.text) != std::string::npos;
    };
    if (std::ranges::any_of(scene.never, fits) || IsEndOfProcess(line)) {
        forbidden.push_back(line);
    }
    for (size_t index = 0; index < scene.expected.size(); ++index) {
        if (!met[index] && scene.expected[index].who == line.who) {
            met[index] = fits(scene.expected[index]);
            return met[index];
        }
    }
    return false;
}

bool SceneJudge::IsDone() const {
    return std::ranges::all_of(met, [](bool one) { return one; });
}

std::vector<Expected> SceneJudge::Missing() const {
    std::vector<Expected> missing;
    for (size_t index = 0; index < scene.expected.size(); ++index) {
        if (!met[index]) {
            missing.push_back(scene.expected[index]);
        }
    }
    return missing;
}

const Story* FindStory(std::string_view name) {
    const auto found = std::ranges::find(Stories(), name, &Story::name);
    return found == Stories().end() ? nullptr : &*found;
}

bool PlayStory(const Story& story, StoryWorld& world, const Journal& journal, const StoryStyle& style,
               const std::function<void(const std::string& line)>& write) {
    return Player(world, journal, style, write).Play(story);
}

/// A story: a short table of scenes. In each scene something happens to the unit, and lines must come in its account.
#ifndef STORY_H
#define STORY_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "Account.h"
#include "EcallPeer.h"
#include "Journal.h"
#include "LocationPeer.h"

class Module;

/// What the acts of a story work on.
struct StoryWorld {
    Module& module;
    EcallPeer& peer;
    LocationPeer& locations;
    GpxTrack track{};  ///< that the vehicle drives along; without points in a story that drives nowhere
};

/// A line that holds this text.
struct Expected {
    Who who;
    std::string text;
};

struct Scene {
    std::string tell;                    ///< printed as the scene's first line
    void (*act)(StoryWorld& world);      ///< null: the scene only waits
    std::vector<Expected> expected;      ///< those of one who in this order; different ones in any order
    std::vector<Expected> never = {};    ///< may not come before the scene ends
    std::chrono::milliseconds lasts{0};  ///< stays at least that long, for the eye and for what may not come
};

struct Story {
    std::string name;
    std::string about;
    std::vector<Scene> scenes;
    std::string track = "";  ///< file name of the shipped track that it drives along; empty: it drives nowhere
};

/// Every story, in the order in which --list shows them.
const std::vector<Story>& Stories();
/// Null when there is none of that name.
const Story* FindStory(std::string_view name);
/// The shipped track that the story drives along; without points when it drives nowhere. Throws GpxError.
GpxTrack StoryTrack(const Story& story);

/// Watches one scene: which expected lines have come, and whether a forbidden one has.
class SceneJudge {
  public:
    explicit SceneJudge(const Scene& judged) : scene(judged), met(judged.expected.size(), false) {}

    /// True when the line is one that was still expected.
    bool See(const AccountLine& line);
    bool IsDone() const;
    std::vector<Expected> Missing() const;
    const std::vector<AccountLine>& Forbidden() const { return forbidden; }

  private:
    const Scene& scene;
    std::vector<bool> met;
    std::vector<AccountLine> forbidden;
};

/// How the account is written, and how long is waited.
struct StoryStyle {
    bool colour = false;
    bool verbose = false;  ///< every journal entry too
    /// For the lines of one scene. What takes longer will not come: ten times what a loaded machine with sanitizers
    /// needs.
    std::chrono::seconds limit{60};
};

/// Plays the story and writes it line by line. Answers whether all that was expected came.
bool PlayStory(const Story& story, StoryWorld& world, const Journal& journal, const StoryStyle& style,
               const std::function<void(const std::string& line)>& write);

#endif

// Keeps docs/integration.md true where a program can see it: what the page names is in the sources, and what the
// sources name is on the page. Whether the sentences around it are true, only a reader can tell.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <protobuf-c/protobuf-c.h>
#include <regex.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <set>
#include <stdexcept>

#include "Hardware.h"
#include "SourceTexts.h"
#include "lib_Ecall/src/ecallapp.pb-c.h"
#include "lib_Location/src/location.pb-c.h"
#include "lib_c/src-gen/ecallUIapp.pb-c.h"

using testing::Contains;
using testing::ElementsAreArray;
using testing::SizeIs;

namespace {

using Rows = std::vector<std::vector<std::string>>;

const std::vector<std::string> kServiceFolders = {"srvc_c", "lib_Ecall", "lib_Location", "lib_c", "lib_rpc"};

// What the C library uses for the service: the shell of popen, the socket of syslog.
const std::set<std::string> kPathsOfTheCLibrary = {"/bin/sh", "/dev/log"};

std::string Page() {
    return ReadProjectFile("docs/integration.md");
}

std::string ServiceSources() {
    return ReadProjectSources(kServiceFolders);
}

std::vector<std::string> Literals() {
    std::vector<std::string> literals = LiteralsOf(ServiceSources());
    const auto ofTheAudioLibrary = LiteralsOf(ReadProjectSources({"platform/libutaimas"}));
    literals.insert(literals.end(), ofTheAudioLibrary.begin(), ofTheAudioLibrary.end());
    return literals;
}

struct RegexFreer {
    void operator()(regex_t* regex) const { regfree(regex); }
};

/// The groups of every match of a POSIX extended regular expression.
Rows Matches(const std::string& text, const std::string& pattern) {
    regex_t compiled{};
    if (regcomp(&compiled, pattern.c_str(), REG_EXTENDED) != 0) {
        throw std::invalid_argument("no regular expression: " + pattern);
    }
    const std::unique_ptr<regex_t, RegexFreer> regex(&compiled);
    Rows rows;
    std::array<regmatch_t, 4> groups{};
    const char* rest = text.c_str();
    for (; regexec(regex.get(), rest, groups.size(), groups.data(), 0) == 0; rest += groups[0].rm_eo) {
        rows.emplace_back();
        for (size_t group = 1; group <= regex->re_nsub; ++group) {
            const auto [start, end] = groups[group];
            rows.back().emplace_back(start < 0 ? "" : std::string(rest + start, rest + end));
        }
    }
    return rows;
}

/// What stands in code on the page and begins so, once each.
std::set<std::string> Code(const std::string& page, const std::string& beginning) {
    std::set<std::string> code;
    for (const auto& row : Matches(page, "`(" + beginning + "[^`]*)`")) {
        code.insert(row[0]);
    }
    return code;
}

bool IsInOneOf(const std::vector<std::string>& texts, const std::string& part) {
    return std::ranges::any_of(texts, [&](const std::string& text) { return text.find(part) != std::string::npos; });
}

/// what: how the complaint calls it.
void ExpectOnPage(const std::string& page, const std::string& text, const std::string& what) {
    EXPECT_NE(std::string::npos, page.find(text)) << "docs/integration.md lacks " << what;
}

/// The chapter whose heading ends so.
std::string Chapter(const std::string& page, const std::string& heading) {
    const size_t start = page.find(heading + "\n");
    EXPECT_NE(std::string::npos, start) << "no chapter \"" << heading << "\"";
    return start == std::string::npos ? "" : page.substr(start, page.find("\n## ", start) - start);
}

void ExpectMethods(const std::string& chapter, const ProtobufCServiceDescriptor& service) {
    for (unsigned index = 0; index < service.n_methods; ++index) {
        const std::string method = std::to_string(index) + " | `" + service.methods[index].name + "`";
        ExpectOnPage(chapter, "\n| " + method + " |", "the method " + method + " of " + service.name);
    }
}

/// What stands between the marks; empty without them.
std::string ParameterTable(const std::string& page) {
    const size_t mark = page.find("<!-- parameters: ");
    const size_t end = page.find("<!-- end of parameters -->\n");
    if (mark == std::string::npos || end == std::string::npos || end < mark) {
        return "";
    }
    const size_t start = page.find('\n', mark) + 1;
    return page.substr(start, end - start);
}

std::string OutputOf(const std::string& command) {
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::string output;
    std::array<char, 4096> part{};
    while (pipe != nullptr && fgets(part.data(), part.size(), pipe.get()) != nullptr) {
        output += part.data();
    }
    return output;
}

}  // namespace

TEST(IntegrationPage, TheParametersAreThoseOfTheService) {
    const std::string known = OutputOf(ECALLUICTL " list --markdown");

    ASSERT_THAT(known, testing::StartsWith("| no. |"));
    EXPECT_EQ(known, ParameterTable(Page())) << "the table in docs/integration.md is out of date; renew it:\n"
                                                "docs/renew-parameters " ECALLUICTL;
}

TEST(IntegrationPage, EveryQuotedTextIsInTheServicesSources) {
    const auto literals = Literals();
    const auto quoted = Code(Page(), "\"");

    EXPECT_THAT(quoted, SizeIs(testing::Gt(80U)));
    for (const std::string& text : quoted) {
        ASSERT_TRUE(text.size() > 1 && text.ends_with('"')) << text;
        EXPECT_TRUE(IsInOneOf(literals, text.substr(1, text.size() - 2)))
            << "docs/integration.md has, but no source: " << text;
    }
}

TEST(IntegrationPage, EveryPathOfThePageIsInTheSources) {
    const auto literals = Literals();
    const auto paths = Code(Page(), "/");

    EXPECT_THAT(paths, SizeIs(testing::Gt(30U)));
    for (const std::string& path : paths) {
        const std::string fixed = path.substr(0, path.find('*'));
        EXPECT_TRUE(kPathsOfTheCLibrary.contains(path) || IsInOneOf(literals, fixed))
            << "docs/integration.md has, but no source: " << path;
    }
}

TEST(IntegrationPage, EveryPathOfTheSourcesIsOnThePage) {
    const std::string page = Page();
    size_t count = 0;
    for (const std::string& literal : Literals()) {
        for (const auto& path : Matches(literal, "^(cat )?(/[a-z][^ ]*|xirtcp://[0-9].*)$")) {
            ++count;
            ExpectOnPage(page, "`" + path[1], path[1]);
        }
    }
    EXPECT_LT(30U, count);
}

TEST(IntegrationPage, EveryAttributeFileOfTheModuleIsOnThePage) {
    const std::string page = Page();
    const DeviceNames devices;
    for (const AttributeRow& row : HealthyAttributes(devices)) {
        const size_t slash = row.path.rfind('/');
        const std::set<std::string> ofDevices = {devices.sensor, devices.led, devices.buttonInterrupt};
        const bool isOfDevice = ofDevices.contains(row.path.substr(0, slash));
        ExpectOnPage(page, "`" + (isOfDevice ? row.path.substr(slash + 1) : row.path) + "`", row.path);
    }
}

TEST(IntegrationPage, TheKernelEventsAreThoseOfTheClassifierInItsOrder) {
    const Rows known =
        Matches(ReadProjectFile("srvc_c/src/EcallUIGpioUevent.cpp"), R"re(\{"([A-Z_ ]+)", ([A-Z_0-9]+), )re");
    const Rows shown = Matches(Page(),
                               "\n"
                               R"(\| [0-9] \| `([A-Z_0-9]+)` \| `([A-Z_ ]+)` \|)");

    ASSERT_THAT(known, SizeIs(8));
    Rows expected;
    for (const auto& row : known) {
        expected.push_back({row[1], row[0]});
    }
    EXPECT_THAT(shown, ElementsAreArray(expected));
}

TEST(IntegrationPage, TheKernelEventsHaveTheirNumbers) {
    const Rows known = Matches(ReadProjectFile("srvc_c/src/EcallUIGpioUevent.h"), "\n    ([A-Z_0-9]+) = ([0-9]),?");
    const Rows shown = Matches(Page(),
                               "\n"
                               R"(\| ([0-9]) \| `([A-Z_0-9]+)` \| `[A-Z_ ]+` \|)");

    EXPECT_THAT(shown, SizeIs(8));
    for (const auto& row : shown) {
        EXPECT_THAT(known, Contains(std::vector{row[1], row[0]}));
    }
}

TEST(IntegrationPage, EveryThreadIsOnThePageByTheNameThatToolsShow) {
    const std::string threads = Chapter(Page(), "## Threads");
    const Rows names =
        Matches(ServiceSources(), R"re((Start(Thread|Worker)\(|threadName = |XirRpcServerTexts kTexts\{)"([^"]+)")re");

    EXPECT_THAT(names, SizeIs(testing::Ge(6U)));
    for (const auto& name : names) {
        ExpectOnPage(threads, "\n| `" + name[2].substr(0, 15) + "` |", "the thread " + name[2]);
    }
}

TEST(IntegrationPage, EveryMethodIsOnThePageWithItsIndex) {
    const std::string page = Page();
    ExpectMethods(Chapter(page, "`IEcallUIApp`"), com__vantu__ecalluiapp__iecall_uiapp__descriptor);
    ExpectMethods(Chapter(page, "`IEcallApp`"), com__vantu__ecallapp__iecall_app__descriptor);
    ExpectMethods(Chapter(page, "`LocationProvider`"), com__vantu__ms__location__location_provider__descriptor);
}

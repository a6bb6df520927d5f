#include "Journal.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <thread>

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr char kPath[] = "/sys/class/ecall_gpio/lte-ecall-relay/value";
constexpr auto kShort = 5ms;  // for waits that are meant to be in vain

}  // namespace

TEST(Journal, EntriesKeepTheirOrderAndGetNumbersAndTimes) {
    Journal journal;

    journal.Append(Kind::Open, kPath);
    journal.Append(Kind::Write, kPath, "1", 1);

    const std::vector<Entry> all = journal.All();
    ASSERT_EQ(2U, all.size());
    EXPECT_EQ(0U, all[0].seq);
    EXPECT_EQ(1U, all[1].seq);
    EXPECT_LE(all[0].time, all[1].time);
    EXPECT_EQ(2U, journal.Mark());
}

TEST(Journal, AWaitEndsWhenTheEntryComes) {
    Journal journal;
    std::thread later([&] {
        journal.Append(Kind::Write, kPath, "0");
        journal.Append(Kind::Write, kPath, "1");
    });

    EXPECT_EQ("1", journal.Await(IsWritten(kPath, "1")).text);
    later.join();
}

TEST(Journal, AWaitFindsWhatCameBeforeIt) {
    Journal journal;
    journal.Append(Kind::Write, kPath, "1");

    EXPECT_TRUE(journal.WaitFor(IsWritten(kPath), 0, 0ms));
}

TEST(Journal, AWaitFromAMarkIgnoresWhatCameBefore) {
    Journal journal;
    journal.Append(Kind::Write, kPath, "1");

    EXPECT_FALSE(journal.WaitFor(IsWritten(kPath), journal.Mark(), kShort));
    EXPECT_FALSE(journal.WaitFor(IsWritten(kPath), journal.Note("from here"), kShort));
}

TEST(Journal, AnAwaitInVainTellsWhatWasAwaitedAndShowsTheTail) {
    Journal journal;
    journal.Append(Kind::Write, kPath, "1", -EIO);

    try {
        journal.Await(IsWritten(kPath, "0"), 0, kShort);
        FAIL() << "nothing was thrown";
    } catch (const JournalTimeout& timeout) {
        EXPECT_THAT(timeout.what(), HasSubstr("Write of " + std::string(kPath) + " saying \"0\""));
        EXPECT_THAT(timeout.what(), HasSubstr("Write      " + std::string(kPath) + "  1  [Input/output error]\n"));
    }
}

TEST(Journal, ACountIsAwaitedEntryByEntry) {
    Journal journal;
    std::thread later([&] {
        for (const char* value : {"1", "0", "1"}) {
            journal.Append(Kind::Write, kPath, value);
        }
    });

    const std::vector<Entry> ones = journal.AwaitCount(2, IsWritten(kPath, "1"));

    later.join();
    EXPECT_EQ(0U, ones[0].seq);
    EXPECT_EQ(2U, ones[1].seq);
    EXPECT_THROW(journal.AwaitCount(3, IsWritten(kPath, "1"), 0, kShort), JournalTimeout);
}

TEST(Journal, AMatchHoldsOnlyWhenAllItsConditionsHold) {
    Journal journal;
    Entry entry;
    entry.kind = Kind::Trace;
    entry.subject = "EcallUIGpio.cpp";
    entry.text = "GpioWrite - Exit : ret = 0";
    journal.Append(entry);

    EXPECT_EQ(1U, journal.Count({}));
    EXPECT_EQ(1U, journal.Count(IsTraced("Exit")));
    EXPECT_EQ(0U, journal.Count(IsTraced("Enter")));
    EXPECT_EQ(0U, journal.Count(IsOnConsole("GpioWrite - Exit : ret = 0")));
    Match match = IsTraced("Exit");
    match.subject = "EcallUIGpioLed.cpp";
    EXPECT_EQ(0U, journal.Count(match));
    match.subject = "EcallUIGpio.cpp";
    match.text = "GpioWrite - Exit";
    EXPECT_EQ(0U, journal.Count(match)) << "text means the whole text";
    match.text.reset();
    match.also = [](const Entry& found) { return found.seq == 7; };
    EXPECT_EQ(0U, journal.Count(match));
}

TEST(Journal, AMatcherMayUseTheJournalItself) {
    Journal journal;
    journal.Note("first");
    Match match = IsKind(Kind::Note);
    match.also = [&](const Entry&) { return journal.Append(Kind::Process, "probe") > 0; };

    EXPECT_EQ("first", journal.Await(match).text);
}

TEST(Journal, EverythingBeforeAnEventCanBeLookedAt) {
    Journal journal;
    journal.Append(Kind::Write, kPath, "1");
    const uint64_t event = journal.Note("event");
    journal.Append(Kind::Write, kPath, "0");

    EXPECT_THAT(journal.Texts(IsWritten(kPath), 0, event), ElementsAre("1"));
    EXPECT_THAT(journal.Texts(IsWritten(kPath), event), ElementsAre("0"));
    EXPECT_THAT(journal.Texts(IsWritten(kPath), event, event), IsEmpty());
}

TEST(Journal, AFollowerGetsWhatIsNewAndNothingWhenNothingComes) {
    Journal journal;
    journal.Note("old");
    std::thread later([&] { journal.Note("new"); });

    const std::vector<Entry> fresh = journal.Follow(1, Journal::kLimit);

    later.join();
    ASSERT_EQ(1U, fresh.size());
    EXPECT_EQ("new", fresh[0].text);
    EXPECT_THAT(journal.Follow(2, kShort), IsEmpty());
}

TEST(Journal, ManyWritersLoseNothingAndShareNoNumber) {
    constexpr int kWriters = 4;
    constexpr int kEntries = 500;
    Journal journal;
    std::vector<std::thread> writers;
    writers.reserve(kWriters);
    for (int writer = 0; writer < kWriters; ++writer) {
        writers.emplace_back([&journal, writer] {
            for (int i = 0; i < kEntries; ++i) {
                journal.Append(Kind::Note, std::to_string(writer), std::to_string(i));
            }
        });
    }
    for (std::thread& writer : writers) {
        writer.join();
    }

    const std::vector<Entry> all = journal.All();
    ASSERT_EQ(static_cast<size_t>(kWriters * kEntries), all.size());
    int next[kWriters] = {};
    for (size_t i = 0; i < all.size(); ++i) {
        EXPECT_EQ(i, all[i].seq);
        EXPECT_EQ(std::to_string(next[std::stoi(all[i].subject)]++), all[i].text);
    }
}

TEST(Journal, AnEntryPrintsAsOneLine) {
    Entry entry;
    entry.time = 1'234'567'890ns;
    entry.kind = Kind::Read;
    entry.subject = kPath;
    entry.text = "a\nb\r\t";

    EXPECT_EQ("  1.234568 Read       " + std::string(kPath) + "  a\\nb\\r\\x09", entry.Print());
}

TEST(Journal, AnEntryOfAPeersWireNamesThePeer) {
    Entry entry;
    entry.kind = Kind::RpcRequest;
    entry.peer = "IEcallApp";
    entry.subject = "triggerEcall";
    entry.text = "automatic=1";

    EXPECT_EQ("  0.000000 RpcRequest IEcallApp.triggerEcall  automatic=1", entry.Print());
}

TEST(Journal, TheSameRequestOfAnotherPeerDoesNotMatch) {
    Journal journal;
    for (const char* peer : {"LocationProvider", "IEcallApp"}) {
        Entry entry;
        entry.kind = Kind::RpcRequest;
        entry.peer = peer;
        entry.subject = "subscribe";
        journal.Append(std::move(entry));
    }
    Match match = IsRpcRequest("subscribe");
    match.peer = "IEcallApp";

    EXPECT_EQ(1U, journal.Await(match).seq);
    EXPECT_EQ(1U, journal.Count(match));
    EXPECT_EQ("RpcRequest with IEcallApp of subscribe", match.Print());
}

TEST(Journal, EachKindHasAName) {
    for (int kind = 0; kind <= static_cast<int>(Kind::Note); ++kind) {
        EXPECT_STRNE("?", KindName(static_cast<Kind>(kind))) << kind;
    }
}

TEST(Journal, TheTailHoldsTheLastEntriesOnly) {
    Journal journal;
    for (const char* text : {"first", "second", "third"}) {
        journal.Note(text);
    }

    const std::string tail = journal.Dump(2);

    EXPECT_THAT(tail, testing::Not(HasSubstr("first")));
    EXPECT_THAT(tail, HasSubstr("second"));
    EXPECT_THAT(tail, HasSubstr("third\n"));
}

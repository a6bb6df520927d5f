#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>

#include "speaker_status.h"
#include "utaimas.h"

namespace {

class SpeakerStatus : public testing::Test {
  protected:
    ~SpeakerStatus() override { std::filesystem::remove(file); }

    UtaAudioFda803SpeakerStatus ReadWith(const std::string& content) const {
        std::ofstream(file) << content;
        return ReadSpeakerStatusFile(file.c_str());
    }

    std::string file = std::filesystem::temp_directory_path() / ("fda803-speaker-" + std::to_string(getpid()));
};

}  // namespace

TEST_F(SpeakerStatus, EachStatusIsReadFromTheFile) {
    for (const int32_t status : {0, 1, 2, 7}) {
        const auto answer = ReadWith(std::to_string(status) + "\n");

        EXPECT_EQ(0, answer.error);
        EXPECT_EQ(status, answer.status);
    }
}

TEST_F(SpeakerStatus, APipeInThePlaceOfTheFileHoldsNobody) {
    ASSERT_EQ(0, mkfifo(file.c_str(), 0600));

    EXPECT_EQ(EBADMSG, ReadSpeakerStatusFile(file.c_str()).error);
}

TEST_F(SpeakerStatus, TheLineEndMayBeMissing) {
    EXPECT_EQ(1, ReadWith("1").status);
    EXPECT_EQ(0, ReadWith("1").error);
}

TEST_F(SpeakerStatus, AnythingButOneNumberIsABadMessage) {
    for (const char* content : {"", "\n", "x", "-1", "1 2", "1x", " 1", "99999999999", "+1",
                                "0000000000000000000000000000000000000000000001"}) {
        EXPECT_EQ(EBADMSG, ReadWith(content).error) << '"' << content << '"';
    }
}

TEST_F(SpeakerStatus, WithoutTheFileTheErrorSaysSo) {
    EXPECT_EQ(ENOENT, ReadSpeakerStatusFile(file.c_str()).error);
}

TEST_F(SpeakerStatus, AFileThatCannotBeReadGivesTheErrorOfTheRead) {
    EXPECT_EQ(EISDIR, ReadSpeakerStatusFile("/").error);
}

TEST_F(SpeakerStatus, TheLibraryAsksTheDocumentedFile) {
    EXPECT_STREQ("/run/utaimas/fda803-speaker", kSpeakerStatusFile);
    EXPECT_EQ(ReadSpeakerStatusFile(kSpeakerStatusFile).error, UtaGetAudioFda803SpeakerStatus().error);
}

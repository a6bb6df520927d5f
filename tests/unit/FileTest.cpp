#include "File.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "Faults.h"
#include "ServiceTest.h"

namespace {

constexpr char kFile[] = "/data/etc/ecall/some_file";
constexpr int kFresh = O_WRONLY | O_CREAT | O_TRUNC;

bool IsOpenInTheProcess(int descriptor) {
    return fcntl(descriptor, F_GETFD) >= 0;
}

/// What a write of the pieces leaves in the file, and how it went.
struct Written {
    std::string content;
    std::size_t count = 0;
    int calls = 0;
};

Written WritePieces(const std::vector<std::string>& pieces, const CallFailures& failures) {
    std::string bytes;
    std::vector<std::size_t> lengths;
    for (const std::string& piece : pieces) {
        bytes += piece;
        lengths.push_back(piece.size());
    }
    Written written;
    const FileDescriptor file = OpenFile(kFile, kFresh, 0600);
    const CallFault fault("write", ENOSPC, failures);
    written.count = WritePiecesToFile(file, bytes.data(), lengths);
    written.calls = fault.Calls();
    written.content = ReadFile(kFile).value();
    return written;
}

class File : public testing::Test {
  protected:
    ~File() override { Remove(kFile); }
};

}  // namespace

// Opening.

TEST_F(File, AnOpenFileIsNotInheritedAndNeverWaits) {
    const FileDescriptor file = OpenFile(kFile, kFresh, 0640);

    ASSERT_TRUE(file.IsOpen());
    EXPECT_EQ(FD_CLOEXEC, fcntl(file.get(), F_GETFD));
    EXPECT_EQ(O_WRONLY | O_NONBLOCK, fcntl(file.get(), F_GETFL) & (O_ACCMODE | O_NONBLOCK | O_APPEND));
    struct stat status {};
    ASSERT_EQ(0, fstat(file.get(), &status));
    EXPECT_EQ(0640U, status.st_mode & 07777);
}

TEST_F(File, APipeWithoutAnotherEndHoldsNobody) {
    ASSERT_EQ(0, mkfifo(kFile, 0600));

    const FileDescriptor writing = OpenFile(kFile, O_WRONLY);
    EXPECT_FALSE(writing.IsOpen());
    EXPECT_EQ(ENXIO, errno);
    EXPECT_TRUE(OpenFile(kFile, O_RDONLY).IsOpen());
}

TEST_F(File, AFailedOpenTellsWhyAndOpensNothing) {
    const FileDescriptor file = OpenFile(kFile, O_RDONLY);

    EXPECT_EQ(ENOENT, errno);
    EXPECT_FALSE(file.IsOpen());
    EXPECT_EQ(-1, file.get());
}

// Writing.

TEST_F(File, BytesAreWrittenInOneCall) {
    const Written written = WritePieces({"one, ", "", "two, ", "three"}, {.path = kFile, .passing = INT_MAX});

    EXPECT_EQ("one, two, three", written.content);
    EXPECT_EQ(15U, written.count);
    EXPECT_EQ(1, written.calls);
}

TEST_F(File, NothingToWriteIsNoCall) {
    const Written written = WritePieces({""}, {.path = kFile, .passing = INT_MAX});

    EXPECT_EQ(0U, written.count);
    EXPECT_EQ(0, written.calls);
}

TEST_F(File, AShortWriteIsContinuedWhereItEnded) {
    const Written written = WritePieces({"0123456789"}, {.path = kFile, .failing = 19, .bytes = 0});
    EXPECT_EQ("0123456789", written.content);
    EXPECT_EQ(10U, written.count);
    EXPECT_EQ(20, written.calls);

    EXPECT_EQ("0123456789", WritePieces({"0123456789"}, {.path = kFile, .bytes = 3}).content);
}

TEST_F(File, APieceIsGivenUpAfterTwentyAttempts) {
    const std::string piece(25, 'x');

    const Written written = WritePieces({piece}, {.path = kFile, .bytes = 1});

    EXPECT_EQ(std::string(20, 'x'), written.content);
    EXPECT_EQ(20U, written.count);
    EXPECT_EQ(20, written.calls);
}

TEST_F(File, AttemptsThatFailCountToo) {
    const Written written = WritePieces({"bytes"}, {.path = kFile});

    EXPECT_EQ("", written.content);
    EXPECT_EQ(0U, written.count);
    EXPECT_EQ(20, written.calls);
}

TEST_F(File, APieceThatIsGivenUpIsPassedOver) {
    const Written written = WritePieces({"one", "two"}, {.path = kFile, .failing = 20});

    EXPECT_EQ("two", written.content);
    EXPECT_EQ(3U, written.count);
    EXPECT_EQ(21, written.calls);
}

TEST_F(File, APieceHasItsOwnAttemptsForWhatTheFormerLeftOfIt) {
    const std::string first(19, '1');
    const std::string second(30, '2');

    const Written written = WritePieces({first, second}, {.path = kFile, .bytes = 1});

    EXPECT_EQ(first + second.substr(0, 20), written.content);
    EXPECT_EQ(39U, written.count);
}

TEST_F(File, BytesAreWrittenLikeASinglePiece) {
    const FileDescriptor file = OpenFile(kFile, kFresh, 0600);
    const CallFault fault("write", ENOSPC, {.path = kFile, .bytes = 1});

    EXPECT_EQ(20U, WriteToFile(file, "012345678901234567890123456789", 30));

    EXPECT_EQ(20, fault.Calls());
    EXPECT_EQ("01234567890123456789", ReadFile(kFile));
}

// Owning.

TEST_F(File, AFileIsClosedWithItsOwner) {
    int descriptor = -1;
    {
        const FileDescriptor file = OpenFile(kFile, kFresh, 0600);
        descriptor = file.get();
        EXPECT_TRUE(IsOpenInTheProcess(descriptor));
    }
    EXPECT_FALSE(IsOpenInTheProcess(descriptor));
}

TEST_F(File, ClosingTwiceClosesOnce) {
    FileDescriptor file = OpenFile(kFile, kFresh, 0600);
    const CallFault count("close", 0, {.passing = INT_MAX});

    EXPECT_EQ(0, file.Close());
    EXPECT_FALSE(file.IsOpen());
    EXPECT_EQ(0, file.Close());

    EXPECT_EQ(1, count.Calls());
}

TEST_F(File, ACloseThatFailsIsAnsweredAndNotRepeated) {
    FileDescriptor file = OpenFile(kFile, kFresh, 0600);
    {
        const CallFault fault("close", EIO, {.path = kFile});
        EXPECT_EQ(-1, file.Close());
        EXPECT_EQ(EIO, errno);
    }
    EXPECT_FALSE(file.IsOpen());
    EXPECT_EQ(0, file.Close());
}

TEST_F(File, AMovedFileIsClosedOnceByItsLastOwner) {
    const CallFault count("close", 0, {.passing = INT_MAX});
    int descriptor = -1;
    {
        FileDescriptor first = OpenFile(kFile, kFresh, 0600);
        descriptor = first.get();
        FileDescriptor second(std::move(first));
        FileDescriptor third;
        third = std::move(second);

        EXPECT_EQ(descriptor, third.get());
        EXPECT_EQ(0, count.Calls());
    }
    EXPECT_EQ(1, count.Calls());
    EXPECT_FALSE(IsOpenInTheProcess(descriptor));
}

TEST_F(File, AnAssignedOwnerGivesUpWhatItHeld) {
    int former = -1;
    {
        FileDescriptor file = OpenFile(kFile, kFresh, 0600);
        former = file.get();
        file = OpenFile(kFile, kFresh, 0600);
        EXPECT_TRUE(file.IsOpen());
        EXPECT_NE(former, file.get());
        EXPECT_FALSE(IsOpenInTheProcess(former));
    }
}

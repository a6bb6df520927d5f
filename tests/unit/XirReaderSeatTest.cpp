// Who reads while handlers follow each other: the moments that no test of the whole transport can hit by intention.
#include "xir_reader_seat.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <array>
#include <functional>
#include <memory>

namespace {

using std::chrono::seconds;

/// A connection on which nothing ever arrives; what is "in its input" is up to the test.
class QuietConnection : public XirSharedConnection {
  public:
    QuietConnection() {
        std::array<int, 2> ends{};
        EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends.data()));
        stream = std::make_shared<XirStream>(XirDescriptor(ends[0]));
        farEnd = XirDescriptor(ends[1]);
    }
    bool HasCalls() const override { return true; }
    XirClock::time_point NextLimit() const override { return limit; }
    void ExpireCalls() override { ++expiries; }
    std::shared_ptr<XirStream> OpenStream() const override { return stream; }
    void ReadInPlace(XirStream& /*stream*/, int pollEvents) override { onRead(pollEvents); }

    std::function<void(int pollEvents)> onRead;
    const XirClock::time_point limit = XirClock::now() + seconds(20);
    int expiries = 0;

  private:
    std::shared_ptr<XirStream> stream;
    XirDescriptor farEnd;
};

TEST(XirReaderSeat, ReplyLeftBehindBetweenTwoHandlersIsLookedForAgain) {
    XirReaderSeat seat;
    const auto connection = std::make_shared<QuietConnection>();
    seat.Attach(connection);
    uint8_t flag = 0;
    int looks = 0;
    connection->onRead = [&](int) {
        if (++looks == 1) {
            // The dispatch thread ends its handler, receives the reply with another notification, and enters the next.
            seat.LeaveHandler();
            seat.EnterHandler();
        } else {
            seat.NotifyFlag(&flag);
        }
    };
    seat.EnterHandler();

    const auto start = XirClock::now();
    EXPECT_EQ(0, seat.WaitFlag(&flag, false));

    EXPECT_LT(XirClock::now() - start, seconds(10)) << "waited for a socket that had nothing more to say";
    EXPECT_EQ(2, looks);
    seat.LeaveHandler();
}

}  // namespace

#include "platform/network.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "net/socket.h"
#include "platform/real_os.h"

namespace korvane::platform {
namespace {

using testing::AllOf;
using testing::AnyOf;
using testing::Contains;
using testing::Each;
using testing::Field;
using testing::Not;

constexpr char kLoopback[] = "127.0.0.1";

// A connection over loopback, both ends of which this process holds. A byte has gone over it, since
// not every system knows the owner of a socket before that.
class Connection {
 public:
  Connection() : listener_(net::Listener::Open(kLoopback, 0, nullptr, error_)) {
    EXPECT_TRUE(listener_) << error_;
    const auto soon = net::Deadline::In(std::chrono::seconds(30));
    net::Dialled dialled = net::Dial(kLoopback, listener_->port(), nullptr, soon);
    EXPECT_EQ(dialled.status, net::DialStatus::kDone) << dialled.error;
    client_ = std::move(dialled.socket);
    accepted_ = listener_->Accept();
    EXPECT_EQ(client_.Send("x", soon), net::IoStatus::kDone);
    EXPECT_EQ(accepted_->Peek(soon), 'x');
  }

  std::int32_t port() const { return listener_->port(); }
  void Break() { client_.Reset(); }

 private:
  std::string error_;
  std::optional<net::Listener> listener_;
  net::Socket client_;
  std::optional<net::Socket> accepted_;
};

TEST(NetworkTest, ListsTheLoopbackInterfaceWithItsAddress) {
  const auto adapters = RealNetwork().Adapters();
  ASSERT_TRUE(adapters) << adapters.error();
  EXPECT_THAT(adapters.value(), Contains(AllOf(Field(&AdapterRow::addresses, Contains(kLoopback)),
                                               Field(&AdapterRow::operStatus, 1),
                                               Field(&AdapterRow::ifIndex, Not(0U))))
                                    .Times(1));
}

TEST(NetworkTest, TellsTheFamilyOfEachDefaultRoute) {
  const auto routes = RealNetwork().DefaultRoutes();
  ASSERT_TRUE(routes) << routes.error();  // a machine without any is none that fails
  EXPECT_THAT(routes.value(), Each(Field(&RouteRow::family, AnyOf(4, 6))));
}

TEST(NetworkTest, FindsAnOpenSocketOfThisProcessUntilItIsBroken) {
  Connection connection;
  const auto to_listener = AllOf(Field(&SocketRow::remoteAddress, kLoopback),
                                 Field(&SocketRow::remotePort, connection.port()),
                                 Field(&SocketRow::localAddress, kLoopback),
                                 Field(&SocketRow::localPort, Not(connection.port())));
  const auto sockets = RealNetwork().OwnSockets();
  ASSERT_TRUE(sockets) << sockets.error();
  EXPECT_THAT(sockets.value(), Contains(to_listener).Times(1));
  EXPECT_THAT(sockets.value(), Each(Field(&SocketRow::remotePort, Not(0)))) << "one listens";

  connection.Break();
  const auto afterwards = RealNetwork().OwnSockets();
  ASSERT_TRUE(afterwards) << afterwards.error();
  EXPECT_THAT(afterwards.value(), Not(Contains(to_listener)));
}

}  // namespace
}  // namespace korvane::platform

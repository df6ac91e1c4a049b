// A reset as the client sees it. Natively alone: Wine lets a regular end go ahead of every close.
#include <gtest/gtest.h>

#include <string>

#include "stand_ins/engine/engine_library.h"
#include "stand_ins/engine/session.h"

namespace korvane::test {
namespace {

TEST(ClashScriptReset, BreaksTheConnectionInTheMiddleOfTheBody) {
  const EngineLibrary engine;
  Session session;
  session.wishes()["clash_answers"] = {{{"kind", "reset"}, {"body", "0123456789"}}};
  const RunningService service(engine, session.configuration);
  net::Socket socket = Connect(session.clash_port);
  SendAll(socket, "GET / HTTP/1.1\r\n\r\n");
  net::IoStatus status = net::IoStatus::kDone;
  for (std::string bytes; status == net::IoStatus::kDone;) {
    status = socket.Receive(bytes, 100, Patience());
  }
  EXPECT_EQ(status, net::IoStatus::kFailed);
}

}  // namespace
}  // namespace korvane::test

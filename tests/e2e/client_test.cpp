// The console's client against a peer that means no good, or falls silent. What is typed and shown
// otherwise stands in tests/pages/console.md.
#include <chrono>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/qvn_socket.h"
#include "support/console.h"
#include "support/daemon_harness.h"
#include "support/test_cluster.h"

namespace {

using support::Console;
using support::DaemonHarness;
using support::wait_until;
using testing::HasSubstr;
using Clock = std::chrono::steady_clock;

constexpr const char* kOrderlyEnd = "The CLI connection has performed an orderly shutdown\n";

/// The executable with -r; what is typed comes from a descriptor, its output goes into a pipe.
class Client {
 public:
  Client(const DaemonHarness& installation, int in) {
    int ends[2] = {-1, -1};
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const qvn_fd their_out(ends[1]);
    out_ = qvn_fd(ends[0]);
    process_ = installation.start_with({"-r"}, in, their_out.get(), STDERR_FILENO);
  }
  ~Client() {
    if (process_ > 0) {
      kill(process_, SIGKILL);
      waitpid(process_, nullptr, 0);
    }
  }

  /// What it has said so far; reads at most so much that others have their turn.
  const std::string& said() {
    pollfd entry{.fd = out_.get(), .events = POLLIN, .revents = 0};
    char bytes[65536];
    ssize_t length = 1;
    for (int reads = 0; reads < 16 && length > 0 && poll(&entry, 1, 0) == 1; reads++) {
      length = read(out_.get(), bytes, sizeof bytes);
      said_.append(bytes, static_cast<size_t>(std::max<ssize_t>(length, 0)));
    }
    return said_;
  }
  bool says(const std::string& text) {
    return wait_until([&] { return said().find(text) != std::string::npos; });
  }
  void forget() {
    said();
    said_.clear();
  }
  /// Waits for its end; gives all it has said. It always ends by itself and with status 0.
  std::string end() {
    int status = -1;
    const bool ended = wait_until([&] {
      said();
      return wait4(process_, &status, WNOHANG, &usage_) == process_;
    });
    EXPECT_TRUE(ended) << said_;
    if (ended)
      process_ = -1;
    EXPECT_EQ(support::exit_status(status), 0);
    return said();
  }
  /// How often it has waited; after its end.
  long waits() const { return usage_.ru_nvcsw; }

 private:
  qvn_fd out_;
  std::string said_;
  pid_t process_ = -1;
  rusage usage_{};
};

/// An installation whose client finds the test in the console's place.
class ConsoleClient : public testing::Test {
 protected:
  ConsoleClient()
      : port_(support::free_port()),
        listener_(qvn_tcp_socket_and_listen("127.0.0.1", static_cast<uint16_t>(port_), 1)) {
    // Fixed room, so that a client is soon held up by a peer that does not read.
    const int size = 65536;
    setsockopt(listener_.get(), SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    support::write_file(home_.path() / "conf/qvn_web_helper.conf",
                        "[CLI]\ncli_listen_ip=127.0.0.1\ncli_listen_port=" + std::to_string(port_));
    int ends[2] = {-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    terminal_ = qvn_fd(ends[0]);
    keyboard_ = qvn_fd(ends[1]);
  }

  /// Waits for the client's login.
  Console peer() {
    pollfd entry{.fd = listener_.get(), .events = POLLIN, .revents = 0};
    EXPECT_EQ(poll(&entry, 1, 60'000), 1) << "no client";
    Console connection(qvn_fd(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC)));
    EXPECT_EQ(connection.read_until("\r\n"), "login\r\n");
    return connection;
  }
  /// The next line that is no heartbeat.
  static std::string typed_line(const Console& peer) {
    std::string line = peer.read_until("\r\n");
    while (line == "heartbeat\r\n")
      line = peer.read_until("\r\n");
    return line;
  }
  /// The client may have ended already.
  void type(const std::string& text) const {
    (void)!send(keyboard_.get(), text.data(), text.size(), MSG_NOSIGNAL);
  }

  DaemonHarness home_;
  int port_;
  qvn_fd listener_, terminal_, keyboard_;
};

TEST_F(ConsoleClient, AServerThatStreamsWithoutEndDoesNotStopHeartbeatsOrTheEnd) {
  const std::string text(65536, 'x');
  Client client(home_, terminal_.get());
  const Console server = peer();
  // The client never finds its socket empty.
  EXPECT_TRUE(wait_until([&] {
    const auto turn = Clock::now() + std::chrono::milliseconds(100);
    while (!server.has_input() && Clock::now() < turn) {
      (void)server.send_what_fits(text);
      client.forget();
    }
    return server.has_input();
  }));
  EXPECT_EQ(server.read_until("\r\n"), "heartbeat\r\n");
  type("exit\n");
  const std::string said = client.end();
  EXPECT_THAT(said, HasSubstr("Goodbye!\n"));
  EXPECT_THAT(said, HasSubstr("Receive invalid msg [xxx"));
}

// Two threads that wait for each other's reader would wait for ever, and a heartbeat in the middle
// of a line would spoil both.
TEST_F(ConsoleClient, AServerThatDoesNotReadIsListenedToAndGetsWholeLinesLater) {
  const qvn_fd file(open((home_.path() / "typed").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
  const std::string typed(1000, 't');
  constexpr int kLines = 8000;  // more than all buffers between the two hold
  std::string content;
  for (int i = 0; i < kLines; i++)
    content += typed + "\n";
  support::write_file(home_.path() / "typed", content);
  Client client(home_, file.get());
  Console server = peer();
  // Held up when it reads on no more, and then so long that heartbeats are due, one a second.
  off_t place = 0;
  auto moved = Clock::now();
  EXPECT_TRUE(wait_until([&] {
    const off_t now = lseek(file.get(), 0, SEEK_CUR);
    moved = now == place ? moved : Clock::now();
    place = now;
    return Clock::now() > moved + std::chrono::milliseconds(1500);
  }));
  server.send("are you there\r\n");
  ASSERT_TRUE(client.says("are you there\n")) << "the client does not listen";
  for (int i = 0; i < kLines; i++)
    ASSERT_EQ(typed_line(server), typed + "\r\n") << i;
  server.close();
  client.end();
}

TEST_F(ConsoleClient, EndsAtTheNextLineWhenTheServerClosesOrTheConnectionBreaks) {
  for (const bool breaks : {false, true}) {
    Client client(home_, terminal_.get());
    Console server = peer();
    std::string last = kOrderlyEnd;
    if (breaks) {
      server.abort();
      last = "The CLI recv error\n";
    } else {
      server.send("\nwhole\t\x1b[2J\xc2\x9b\xc5\x9b\r\npartial");  // which steers no terminal
      server.close();
      last.insert(0, "\nwhole\t?[2J??\xc5\x9b\n");
    }
    EXPECT_TRUE(client.says(last));
    type("\n");
    EXPECT_THAT(client.end(), testing::StartsWith(last));
  }
}

TEST_F(ConsoleClient, EndOfInputDoesNotEndItAndCostsNothing) {
  const auto start = Clock::now();
  type("get_conf\nlast");
  keyboard_.reset();
  Client client(home_, terminal_.get());
  Console server = peer();
  EXPECT_EQ(typed_line(server), "get_conf\r\n");
  EXPECT_EQ(typed_line(server), "last\r\n");
  for (int i = 0; i < 3; i++)
    EXPECT_EQ(server.read_until("\r\n"), "heartbeat\r\n");
  server.send("still here\r\n");
  EXPECT_TRUE(client.says("still here\n"));
  server.close();
  EXPECT_EQ(client.end(), std::string("still here\n") + kOrderlyEnd);
  const auto seconds = std::chrono::duration<double>(Clock::now() - start).count();
  EXPECT_LT(static_cast<double>(client.waits()), 100 * seconds);
}

}  // namespace

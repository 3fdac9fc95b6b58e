// The console's client: against a peer that follows a script, and against the daemon.
#include <chrono>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include "base/qvn_socket.h"
#include "support/daemon_harness.h"
#include "support/test_cluster.h"

namespace {

using support::DaemonHarness;
using support::wait_until;
using testing::HasSubstr;
using testing::Not;
using Clock = std::chrono::steady_clock;

constexpr int kPatience = 60'000;  // milliseconds

constexpr const char* kOrderlyEnd = "The CLI connection has performed an orderly shutdown\n";

std::pair<qvn_fd, qvn_fd> pipe_pair() {
  int ends[2] = {-1, -1};
  EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
  return {qvn_fd(ends[0]), qvn_fd(ends[1])};
}

/// Adds to `text` what can be read without waiting; at most so much that others have their turn.
void read_more(int fd, std::string& text) {
  pollfd entry{.fd = fd, .events = POLLIN, .revents = 0};
  for (int reads = 0; reads < 16 && poll(&entry, 1, 0) == 1; reads++) {
    char bytes[65536];
    const ssize_t length = read(fd, bytes, sizeof bytes);
    if (length <= 0)
      return;
    text.append(bytes, static_cast<size_t>(length));
  }
}

/// The console's place, taken by the test: one client at a time, on a port of its own.
class Peer {
 public:
  Peer()
      : port_(support::free_port()),
        listener_(qvn_tcp_socket_and_listen("127.0.0.1", static_cast<uint16_t>(port_), 1)) {
    // Fixed room, so that a client is soon held up by a peer that does not read.
    const int size = 65536;
    setsockopt(listener_.get(), SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
  }
  int port() const { return port_; }

  /// Waits for the client; gives its first line.
  std::string accept_login() {
    pollfd entry{.fd = listener_.get(), .events = POLLIN, .revents = 0};
    EXPECT_EQ(poll(&entry, 1, kPatience), 1) << "no client";
    connection_ = qvn_fd(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    return line();
  }
  /// The next line without its end; waits for it.
  std::string line() {
    pollfd entry{.fd = connection_.get(), .events = POLLIN, .revents = 0};
    while (!has_line()) {
      if (poll(&entry, 1, kPatience) != 1 || is_gone()) {
        ADD_FAILURE() << "no line, but '" << received_ << "'";
        return "";
      }
    }
    const size_t end = received_.find("\r\n");
    std::string result = received_.substr(0, end);
    received_.erase(0, end + 2);
    return result;
  }
  /// The next line that is no heartbeat.
  std::string typed_line() {
    std::string result = line();
    while (result == "heartbeat")
      result = line();
    return result;
  }
  bool has_line() {
    const auto found = [this] { return received_.find("\r\n") != std::string::npos; };
    if (!found())
      read_more(connection_.get(), received_);
    return found();
  }
  void say(const std::string& text) {
    EXPECT_EQ(send(connection_.get(), text.data(), text.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(text.size()));
  }
  /// Sends the text again and again until the client has to catch up.
  void fill(const std::string& text) {
    while (send(connection_.get(), text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT) > 0) {
    }
  }
  void close_connection() { connection_.reset(); }
  void reset_connection() {
    const linger at_once{.l_onoff = 1, .l_linger = 0};
    setsockopt(connection_.get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    close_connection();
  }

 private:
  bool is_gone() const {
    char byte = 0;
    return recv(connection_.get(), &byte, 1, MSG_PEEK) <= 0;
  }

  const int port_;
  qvn_fd listener_;
  qvn_fd connection_;
  std::string received_;
};

/// The executable with -r; its output is a pipe, its keyboard a socket unless told otherwise.
class Client {
 public:
  explicit Client(const DaemonHarness& installation) {
    int ends[2] = {-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const qvn_fd in(ends[0]);
    keyboard_ = qvn_fd(ends[1]);
    start(installation, in.get());
  }
  /// What is typed comes from `in`.
  Client(const DaemonHarness& installation, int in) { start(installation, in); }
  ~Client() {
    if (process_ > 0) {
      kill(process_, SIGKILL);
      waitpid(process_, nullptr, 0);
    }
  }

  /// It may have ended already.
  void type(const std::string& text) {
    (void)!send(keyboard_.get(), text.data(), text.size(), MSG_NOSIGNAL);
  }

  /// What it has said so far.
  const std::string& said() {
    read_more(out_.get(), said_);
    return said_;
  }
  void forget() {
    said();
    said_.clear();
  }
  bool says(const std::string& text) {
    return wait_until([&] { return said().find(text) != std::string::npos; });
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
    EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    return said();
  }
  /// Lets it go through the front door.
  std::string leave() {
    type("exit\n");
    return end();
  }
  /// How often it has waited; after its end.
  long waits() const { return usage_.ru_nvcsw; }

 private:
  void start(const DaemonHarness& installation, int in) {
    auto [out, their_out] = pipe_pair();
    process_ = installation.start_with({"-r"}, in, their_out.get(), STDERR_FILENO);
    out_ = std::move(out);
  }

  qvn_fd keyboard_;
  qvn_fd out_;
  std::string said_;
  pid_t process_ = -1;
  rusage usage_{};
};

/// An installation whose client finds the peer.
class ConsoleClient : public testing::Test {
 protected:
  ConsoleClient() { configure(""); }

  void configure(const std::string& settings) {
    home_.set_console("cli_listen_ip=127.0.0.1\ncli_listen_port=" + std::to_string(peer_.port()) +
                      "\n" + settings);
    home_.write_main_conf("");
  }

  DaemonHarness home_;
  Peer peer_;
};

TEST_F(ConsoleClient, LogsInWithTheDigestOfUserAndPasswordWhenItHasBoth) {
  const struct {
    const char* settings;
    const char* line;
  } cases[] = {
      {"", "login"},
      {"cli_login_user=operator\n", "login"},
      {"cli_login_pwd=secret\n", "login"},
      {"cli_login_user=operator\ncli_login_pwd=secret\n",
       "login operator f51edfb66c42a1091fb4655a45f118d0"},
  };
  for (const auto& c : cases) {
    configure(c.settings);
    Client client(home_);
    EXPECT_EQ(peer_.accept_login(), c.line);
    EXPECT_EQ(client.leave(), "Goodbye!\n");
  }
}

TEST_F(ConsoleClient, SendsWhatIsTypedAndNothingForAnEmptyLine) {
  configure("cli_connection_expires=3600\n");
  Client client(home_);
  peer_.accept_login();
  const std::string longest(1023, 'x');
  client.type("help\n\n\r\nget_conf  now\r\ncut\rhere\nexit now\n" + longest + "rest\n");
  for (const char* line : {"help", "get_conf  now", "cut", "exit now"})
    EXPECT_EQ(peer_.line(), line);
  EXPECT_EQ(peer_.line(), longest);
  EXPECT_EQ(peer_.line(), "rest");
  client.type("QUIT\r\nnot sent\n");
  EXPECT_EQ(client.end(), "Goodbye!\n");
  EXPECT_FALSE(peer_.has_line());
}

TEST_F(ConsoleClient, AServerThatStreamsWithoutEndDoesNotStopHeartbeatsOrTheEnd) {
  const std::string text(65536, 'x');
  Client client(home_);
  peer_.accept_login();
  // The client never finds its socket empty.
  const auto deadline = Clock::now() + std::chrono::milliseconds(kPatience);
  while (!peer_.has_line() && Clock::now() < deadline) {
    peer_.fill(text);
    client.forget();
  }
  EXPECT_EQ(peer_.line(), "heartbeat");
  client.type("exit\n");
  const std::string said = client.end();
  EXPECT_THAT(said, HasSubstr("Goodbye!\n"));
  EXPECT_THAT(said, HasSubstr("Receive invalid msg [xxx"));
}

// Two threads that wait for each other's reader would wait for ever, and a heartbeat in the middle
// of a line would spoil both.
TEST_F(ConsoleClient, AServerThatDoesNotReadIsListenedToAndGetsWholeLinesLater) {
  qvn_fd file(open((home_.path() / "typed").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
  const std::string typed(1000, 't');
  constexpr int kLines = 8000;  // more than all buffers between the two hold
  std::string content;
  for (int i = 0; i < kLines; i++)
    content += typed + "\n";
  support::write_file(home_.path() / "typed", content);
  Client client(home_, file.get());
  EXPECT_EQ(peer_.accept_login(), "login");
  // Long enough for the client to be held up and for heartbeats to be due, one a second.
  const auto held_up = Clock::now() + std::chrono::seconds(4);
  EXPECT_TRUE(wait_until([&] { return Clock::now() > held_up; }));
  peer_.say("are you there\r\n");
  ASSERT_TRUE(client.says("are you there\n")) << "the client does not listen";
  for (int i = 0; i < kLines; i++)
    ASSERT_EQ(peer_.typed_line(), typed) << i;
  peer_.close_connection();
  client.end();
}

TEST_F(ConsoleClient, EndsAtTheNextLineWhenTheServerCloses) {
  Client client(home_);
  peer_.accept_login();
  peer_.say("\nwhole\t\x1b[2J\xc2\x9b\xc5\x9b\r\npartial");  // which steers no terminal
  peer_.close_connection();
  EXPECT_TRUE(client.says(kOrderlyEnd));
  client.type("\n");
  EXPECT_EQ(client.end(), std::string("\nwhole\t?[2J??\xc5\x9b\n") + kOrderlyEnd);
}

TEST_F(ConsoleClient, EndsWithoutASignalWhenTheConnectionBreaks) {
  Client client(home_);
  peer_.accept_login();
  peer_.reset_connection();
  EXPECT_TRUE(client.says("The CLI recv error\n"));
  client.type("help\n");
  EXPECT_THAT(client.end(), testing::StartsWith("The CLI recv error\n"));
}

TEST_F(ConsoleClient, EndOfInputDoesNotEndItAndCostsNothing) {
  const auto start = Clock::now();
  auto [in, keyboard] = pipe_pair();
  EXPECT_EQ(write(keyboard.get(), "get_conf\nlast", 13), 13);
  keyboard.reset();
  Client client(home_, in.get());
  peer_.accept_login();
  EXPECT_EQ(peer_.typed_line(), "get_conf");
  EXPECT_EQ(peer_.typed_line(), "last");
  for (int i = 0; i < 3; i++)
    EXPECT_EQ(peer_.line(), "heartbeat");
  peer_.say("still here\r\n");
  EXPECT_TRUE(client.says("still here\n"));
  peer_.close_connection();
  EXPECT_EQ(client.end(), std::string("still here\n") + kOrderlyEnd);
  const auto seconds = std::chrono::duration<double>(Clock::now() - start).count();
  EXPECT_LT(static_cast<double>(client.waits()), 100 * seconds);
}

TEST(ConsoleClientProcess, ReportsThatNobodyListens) {
  DaemonHarness home;
  home.set_console("cli_listen_ip=127.0.0.1\n");
  home.write_main_conf("");
  EXPECT_EQ(Client(home).end(), "Connect 127.0.0.1:" + std::to_string(home.console_port()) +
                                    " error, Connection refused\n");
  // Without settings there is no address: no default takes their place.
  std::filesystem::remove(home.path() / "conf/qvn_web_helper.conf");
  EXPECT_THAT(Client(home).end(), testing::MatchesRegex("Connect :0 error, [^\n]+\n"));
}

TEST(ConsoleClientProcess, TalksToTheDaemon) {
  DaemonHarness home;
  home.set_console("cli_listen_ip=127.0.0.1\ncli_connection_expires=10\n");
  home.write_main_conf("");
  home.start();
  Client client(home);
  EXPECT_TRUE(client.says("Welcome to web helper\n"));
  client.type("HeLp\n");
  EXPECT_TRUE(client.says("reload configuration\n"));
  EXPECT_TRUE(home.wait_log("request: 'heartbeat'"));
  EXPECT_EQ(client.leave(),
            "Welcome to web helper\n\nCLI command list\n"
            "   ----------Command\tDescription------------------------------\n"
            "            get_conf\tshow current configuration\n"
            "         reload_conf\treload configuration\nGoodbye!\n");
}

}  // namespace

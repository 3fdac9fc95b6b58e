#include "cli/qvn_cli_client.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <mutex>
#include <new>
#include <pthread.h>
#include <string_view>
#include <strings.h>
#include <sys/socket.h>
#include <utility>

#include "base/qvn_md5.h"
#include "base/qvn_socket.h"
#include "base/qvn_thread.h"
#include "base/qvn_time.h"
#include "cli/cli_protocol.h"
#include "cli/cli_receive.h"
#include "core/qvn_core_ctrl.h"

namespace {

constexpr const char* kMayBeShutdown = "The CLI connection may be shutdown";

/// Each wait for the socket looks at the exit flag this often.
constexpr int kLookAtExitFlag = 1000;  // milliseconds

struct cli_client_ctrl {
  pthread_t thread{};                       ///< receives and sends heartbeats
  bool started = false;                     ///< main thread only
  std::atomic<uint8_t> exit = 0;            ///< 1: stop
  uint16_t heartbeat_interval = 0;          ///< seconds
  std::atomic<int64_t> next_heartbeat = 0;  ///< seconds since the epoch
  qvn_fd fd;                                ///< written before the receive thread starts
  std::mutex line_on_its_way;               ///< lines go out whole, one after the other
  cli_answer_reader answers;                ///< the receive thread's
};

/// Null before qvn_cli_client_init and after qvn_cli_client_uninit.
cli_client_ctrl* g_cli_client_ctrl = nullptr;

bool exit_requested() {
  return g_cli_client_ctrl->exit == 1;
}

void request_exit() {
  g_cli_client_ctrl->exit = 1;
}

// --- Heartbeats ---------------------------------------------------------------------------------

void put_heartbeat_off() {
  g_cli_client_ctrl->next_heartbeat = std::time(nullptr) + g_cli_client_ctrl->heartbeat_interval;
}

bool heartbeat_is_due() {
  const int64_t now = std::time(nullptr);
  const int64_t next = g_cli_client_ctrl->next_heartbeat;
  const bool clock_was_stepped_back = next > now + g_cli_client_ctrl->heartbeat_interval;
  return now >= next || clock_was_stepped_back;
}

// --- Sending ------------------------------------------------------------------------------------

enum class sending { complete, broken, abandoned };

/// Whether a line may wait for a server that does not read.
enum class patience { none, until_exit };

/// Sends all of it. A line that has been begun is abandoned only when the client ends. The caller
/// holds `line_on_its_way`.
sending send_whole(std::string_view line, patience allowed) {
  bool begun = false;
  while (!line.empty()) {
    const ssize_t sent =
        send(g_cli_client_ctrl->fd.get(), line.data(), line.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent >= 0) {
      begun = true;
      line.remove_prefix(static_cast<std::size_t>(sent));
    } else if (!qvn_try_later(errno)) {
      return sending::broken;
    } else if (exit_requested() || (allowed == patience::none && !begun)) {
      return sending::abandoned;
    } else {
      qvn_wait_until_writable(g_cli_client_ctrl->fd.get(), kLookAtExitFlag);
    }
  }
  put_heartbeat_off();
  return sending::complete;
}

/// A broken connection ends the client.
void send_or_end(std::string_view line, patience allowed) {
  if (send_whole(line, allowed) == sending::broken) {
    std::puts(kMayBeShutdown);
    request_exit();
  }
}

/// The receive thread must not wait for the server to read: if the server waits for the client to
/// read, both would wait for ever. While a typed line is on its way, or the server does not read,
/// the heartbeat is left for a later turn.
void send_heartbeat() {
  const std::unique_lock line(g_cli_client_ctrl->line_on_its_way, std::try_to_lock);
  if (line.owns_lock()) {
    send_or_end("heartbeat\r\n", patience::none);
  }
}

// --- Receiving ----------------------------------------------------------------------------------

/// A server that streams without end is interrupted for a heartbeat after this many reads.
constexpr int kReadsPerTurn = 16;

/// Prints the lines that have come; whether the connection is still there.
bool cli_client_msg_proc() {
  const cli_turn turn = cli_read_turn<kSessionReadSize>(
      g_cli_client_ctrl->fd.get(), kReadsPerTurn, [](std::string_view received) {
        g_cli_client_ctrl->answers.read(
            received, [](const char* shown) { std::puts(shown); },
            [](const char* shown) { std::printf("Receive invalid msg [%s]\n", shown); });
        return true;
      });
  if (turn.state == cli_turn::ended) {
    std::puts(turn.error == 0 ? "The CLI connection has performed an orderly shutdown"
                              : "The CLI recv error");
  }
  return turn.state != cli_turn::ended;
}

void receive_until_end() {
  while (!exit_requested()) {
    if (heartbeat_is_due()) {
      send_heartbeat();
    }
    const qvn_input input = qvn_wait_for_input(g_cli_client_ctrl->fd.get(), kLookAtExitFlag);
    if (input == qvn_input::broken) {
      std::puts("The CLI socket select error, disconnected this connection");
      return;
    }
    if (input == qvn_input::ready && !cli_client_msg_proc()) {
      return;
    }
  }
}

void* cli_client_threand_run(void* /*unused*/) noexcept {
  qvn_thread_set_name("qvn_cli_client");
  receive_until_end();
  request_exit();  // the editor notices after its next line
  return nullptr;
}

// --- Editing ------------------------------------------------------------------------------------

constexpr std::string_view kLineEnd = "\r\n";

/// The longest typed line with its NUL; a longer one is sent in pieces.
constexpr std::size_t kTypedSize = 1024;

/// False at the end of input. The end mark is cleared, so that a terminal can be typed on.
bool read_typed(char (&line)[kTypedSize]) {
  if (std::fgets(line, sizeof line, stdin)) {
    return true;
  }
  std::clearerr(stdin);
  return false;
}

void cut_line_end(char* line) {
  char* end = std::strrchr(line, '\r');
  if (!end) {
    end = std::strrchr(line, '\n');
  }
  if (end) {
    *end = '\0';
  }
}

bool is_farewell(const char* line) {
  return strcasecmp(line, "exit") == 0 || strcasecmp(line, "quit") == 0 ||
         strcasecmp(line, "...") == 0;
}

void send_typed(const char* line) {
  char text[kTypedSize + kLineEnd.size()];
  const int length = std::snprintf(text, sizeof text, "%s\r\n", line);
  const std::lock_guard whole_line(g_cli_client_ctrl->line_on_its_way);
  send_or_end({text, static_cast<std::size_t>(length)}, patience::until_exit);
}

void take_typed(char* line) {
  cut_line_end(line);
  if (*line == '\0') {
    return;
  }
  if (is_farewell(line)) {
    std::puts("Goodbye!");
    request_exit();
    return;
  }
  send_typed(line);
}

/// Takes lines until the client ends. The end of input does not end it: it goes on showing what the
/// console sends, and looks for more input now and then.
void cli_edit_run() {
  constexpr uint32_t kBreath = 200;                     // microseconds
  constexpr uint32_t kPauseAtEndOfInput = 100 * 1000U;  // microseconds
  while (!exit_requested()) {
    char line[kTypedSize];
    const bool typed = read_typed(line);
    if (typed) {
      take_typed(line);
    }
    qvn_usleep(typed ? kBreath : kPauseAtEndOfInput);
  }
}

// --- Connecting ---------------------------------------------------------------------------------

/// "login" alone, or the user and the digest of user and password.
void cli_client_send_auth() {
  const std::string& user = g_core_ctrl->cli_login_user;
  const std::string& password = g_core_ctrl->cli_login_pwd;
  char line[1024] = "login\r\n";
  if (!user.empty() && !password.empty()) {
    char secret[1024];  // values of the configuration file are much shorter
    (void)std::snprintf(secret, sizeof secret, "%s:%s", user.c_str(), password.c_str());
    (void)std::snprintf(line, sizeof line, "login %s %s\r\n", user.c_str(), qvn_md5(secret).data());
  }
  const std::lock_guard whole_line(g_cli_client_ctrl->line_on_its_way);
  if (send_whole(line, patience::until_exit) == sending::broken) {
    std::puts(kMayBeShutdown);
  }
}

bool connect_to_console() {
  const char* const address = g_core_ctrl->cli_listen_ip;
  const uint16_t port = g_core_ctrl->cli_listen_port;
  qvn_fd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd.is_open()) {
    std::printf("Create TCP socket for %s failed\n", "CLI");
    return false;
  }
  const qvn_connected made = qvn_tcp_connect(fd.get(), address, port);
  if (made.error != 0) {
    std::printf("Connect %s:%d error, %s\n", address, port, std::strerror(made.error));
    return false;
  }
  // No call of the client relies on either.
  if (!made.nonblocking) {
    std::printf("Can't set tcp socket[%s:%d] to nonblock\n", address, port);
  }
  if (!made.no_delay) {
    std::puts("Can't set tcp socket to no delay");
  }
  g_cli_client_ctrl->fd = std::move(fd);
  return true;
}

/// Not before there is a connection, and with the first heartbeat still ahead.
bool start_receiving() {
  put_heartbeat_off();
  const int error =
      pthread_create(&g_cli_client_ctrl->thread, nullptr, cli_client_threand_run, nullptr);
  if (error != 0) {
    std::printf("Start CLI receive thread error, %s\n", std::strerror(error));
    return false;
  }
  g_cli_client_ctrl->started = true;
  return true;
}

}  // namespace

uint16_t cli_heartbeat_interval(uint16_t expires) {
  constexpr int kAhead = 3;  // seconds
  const int half = expires / 2;
  return static_cast<uint16_t>(half < kAhead + 1 ? 1 : half - kAhead);
}

int32_t qvn_cli_client_init() {
  g_cli_client_ctrl = new (std::nothrow) cli_client_ctrl;
  if (!g_cli_client_ctrl) {
    std::puts("Alloc memory for CLI client control failed");
    return -1;
  }
  g_cli_client_ctrl->heartbeat_interval =
      cli_heartbeat_interval(g_core_ctrl->cli_connection_expires);
  return 0;
}

int32_t qvn_cli_client_run() {
  if (!g_cli_client_ctrl || !connect_to_console() || !start_receiving()) {
    return -1;
  }
  cli_client_send_auth();
  cli_edit_run();
  return 0;
}

int32_t qvn_cli_client_exit() {
  if (!g_cli_client_ctrl) {
    return 0;
  }
  request_exit();
  if (g_cli_client_ctrl->started) {
    pthread_join(g_cli_client_ctrl->thread, nullptr);
    g_cli_client_ctrl->started = false;
  }
  return 0;
}

int32_t qvn_cli_client_uninit() {
  delete g_cli_client_ctrl;
  g_cli_client_ctrl = nullptr;
  return 0;
}

#include "support/console.h"

#include <algorithm>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

namespace support {
namespace {

constexpr int kPatience = 30'000;  // milliseconds

bool wait_for(int fd, short events, int milliseconds) {
  pollfd entry{fd, events, 0};
  return poll(&entry, 1, milliseconds) > 0;
}

}  // namespace

Console::Console(int port, int receive_buffer)
    : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  if (receive_buffer > 0)
    setsockopt(fd_.get(), SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof receive_buffer);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(fd_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    close();
}

bool Console::has_input(int seconds) const {
  return wait_for(fd_.get(), POLLIN, seconds * 1000);
}

void Console::send(std::string_view bytes) const {
  while (!bytes.empty() && wait_for(fd_.get(), POLLOUT, kPatience)) {
    const size_t sent = send_what_fits(bytes);
    if (sent == 0)
      return;
    bytes.remove_prefix(sent);
  }
}

size_t Console::send_what_fits(std::string_view bytes) const {
  const ssize_t sent = ::send(fd_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  return sent > 0 ? static_cast<size_t>(sent) : 0;
}

std::string Console::read(size_t length) const {
  std::string text;
  while (text.size() < length && wait_for(fd_.get(), POLLIN, kPatience)) {
    char bytes[4096];
    const ssize_t count = recv(fd_.get(), bytes, std::min(sizeof bytes, length - text.size()), 0);
    if (count <= 0)
      break;
    text.append(bytes, static_cast<size_t>(count));
  }
  return text;
}

std::string Console::read_until(std::string_view end) const {
  std::string text;
  while (!text.ends_with(end) && wait_for(fd_.get(), POLLIN, kPatience)) {
    char bytes[4096];
    const ssize_t seen = recv(fd_.get(), bytes, sizeof bytes, MSG_PEEK);
    if (seen <= 0)
      break;
    const size_t before = text.size();
    text.append(bytes, static_cast<size_t>(seen));
    const size_t found = text.find(end, before - std::min(before, end.size()));
    if (found != std::string::npos)
      text.resize(found + end.size());
    (void)!recv(fd_.get(), bytes, text.size() - before, 0);
  }
  return text;
}

bool Console::closes(int seconds) const {
  while (has_input(seconds)) {
    char bytes[4096];
    if (recv(fd_.get(), bytes, sizeof bytes, 0) <= 0)
      return true;
  }
  return false;
}

bool Console::log_in(std::string_view arguments) const {
  send("login" + (arguments.empty() ? "" : " " + std::string(arguments)) + "\r\n");
  return read(23) == "Welcome to web helper\r\n";
}

void Console::abort() {
  const linger reset{1, 0};
  setsockopt(fd_.get(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
  close();
}

}  // namespace support

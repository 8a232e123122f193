#include "linux/instance/InstanceServer.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <utility>

#include <QtCore/QByteArray>
#include <sys/socket.h>
#include <unistd.h>

#include "app/InstanceAnswers.h"

namespace marigold {

namespace {

// All are of the user; the bounds are for mistakes.
constexpr std::size_t mostCallers = 64;
constexpr std::ptrdiff_t mostFollowers = 48;  // the others have one question each
constexpr Seconds descriptorPause{1};
constexpr std::size_t longestRequest = 4096;

bool isOfThisUser(int socket) {
  ucred peer = {};
  socklen_t size = sizeof peer;
  return ::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
         peer.uid == ::geteuid();
}

// All of it or, to somebody who does not read, nothing that counts.
bool send(int socket, std::string_view text) {
  return ::send(socket, text.data(), text.size(), MSG_NOSIGNAL) ==
         static_cast<ssize_t>(text.size());
}

}  // namespace

InstanceServer::InstanceServer(LinuxEventLoop& loop, int listener)
    : loop_(loop), listener_(listener) {
  if (listener_ >= 0) {
    loop_.watch(listener_, [this] { accept(); });
  }
}

InstanceServer::~InstanceServer() {
  if (listener_ >= 0) {
    loop_.unwatch(listener_);
  }
  for (auto& [key, caller] : callers_) {
    loop_.unwatch(key);
    if (caller.waitsForEnd) {
      (void)caller.socket.release();  // the process's end closes it
    }
  }
}

void InstanceServer::tellFollowers() {
  for (auto next = callers_.begin(); next != callers_.end();) {
    const auto& [key, caller] = *next++;
    if (const std::string text = caller.news ? caller.news() : std::string();
        !text.empty() && !send(key, text)) {
      leave(key);
    }
  }
}

void InstanceServer::accept() {
  OwnedDescriptor socket(::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!socket.isOpen() && (errno == EMFILE || errno == ENFILE)) {
    // Who waits would be reported without end.
    loop_.unwatch(listener_);
    again_ =
        loop_.callAfter(descriptorPause, [this] { loop_.watch(listener_, [this] { accept(); }); });
  }
  if (!socket.isOpen() || !isOfThisUser(socket.get())) {
    return;
  }
  if (callers_.size() >= mostCallers) {
    leave(
        std::ranges::find_if(callers_, [](const auto& each) { return !each.second.news; })->first);
  }
  const int key = socket.get();
  callers_.emplace(key, Caller{.socket = std::move(socket)});
  loop_.watch(key, [this, key] { hear(key); });
}

void InstanceServer::hear(int key) {
  Caller& caller = callers_.at(key);
  std::array<char, longestRequest> bytes{};
  const ssize_t count = ::recv(key, bytes.data(), bytes.size(), 0);
  if (count <= 0) {
    if (count == 0 || errno != EAGAIN) {
      leave(key);
    }
    return;
  }
  if (caller.isAnswered) {
    return;
  }
  caller.heard.append(bytes.data(), static_cast<std::size_t>(count));
  if (const auto end = caller.heard.find('\n'); end != std::string::npos) {
    caller.isAnswered = true;
    answer(caller, std::string_view(caller.heard).substr(0, end));
  } else if (caller.heard.size() > longestRequest) {
    leave(key);
  }
}

void InstanceServer::answer(Caller& caller, std::string_view request) {
  const int key = caller.socket.get();
  if (request.starts_with(followRequest)) {
    request.remove_prefix(followRequest.size());
    const auto others =
        std::ranges::count_if(callers_, [](const auto& each) { return bool(each.second.news); });
    caller.news = onFollow && others < mostFollowers ? onFollow(request) : nullptr;
    if (!caller.news || !send(key, caller.news())) {
      leave(key);
    }
    return;
  }
  // What lets the window come to the front on Wayland follows the word.
  const std::string_view word = request.substr(0, request.find(' '));
  if (word == instanceRequest::open) {
    const std::string token(request.substr(std::min(request.size(), word.size() + 1)));
    if (!token.empty()) {
      ::qputenv("XDG_ACTIVATION_TOKEN", QByteArray::fromStdString(token));
    }
    request = word;
  }
  caller.waitsForEnd = request == instanceRequest::quit;
  if (onRequest) {
    (void)send(key, onRequest(request));
  }
  if (!caller.waitsForEnd) {
    (void)::shutdown(key, SHUT_WR);
  }
}

void InstanceServer::leave(int key) {
  loop_.unwatch(key);
  callers_.erase(key);
}

}  // namespace marigold

// SPDX-License-Identifier: MIT
#include "server/connection.h"

#include <hiredis/async.h>

#include <csignal>
#include <exception>
#include <new>
#include <utility>

#include "server/events.h"

namespace Zorbe::Relay {

namespace {

// The client library writes without MSG_NOSIGNAL.
void ignoreBrokenPipes() {
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
}

redisAsyncContext* connectTo(const Endpoint& endpoint) {
  redisAsyncContext* const context = endpoint.path.empty()
                                         ? redisAsyncConnect(endpoint.host.c_str(), endpoint.port)
                                         : redisAsyncConnectUnix(endpoint.path.c_str());
  if (context == nullptr) throw std::bad_alloc();
  return context;
}

std::string textOf(const char* text) {
  return text == nullptr || *text == '\0' ? "the connection was closed" : text;
}

}  // namespace

Command& Command::add(std::string_view word) {
  text_ += word;
  lengths_.push_back(word.size());
  return *this;
}

Connection::Connection(const Endpoint& endpoint, Owner& owner, const std::optional<TlsFiles>& tls)
    : owner_(owner), context_(connectTo(endpoint)) {
  ignoreBrokenPipes();
  context_->data = this;
  if (context_->err != 0) {
    fail(textOf(context_->errstr));
    return;
  }
  try {
    if (tls) encryption_ = std::make_unique<Encryption>(*tls, endpoint.host);
    Events::attach(*context_);
  } catch (const UsageError& error) {
    fail(error.what());
    return;
  } catch (const std::exception&) {
    redisAsyncFree(context_);
    throw;
  }
  static_cast<void>(redisAsyncSetDisconnectCallback(context_, disconnected));
  static_cast<void>(redisAsyncSetConnectCallback(context_, connected));
}

Connection::~Connection() {
  if (context_ == nullptr) return;
  context_->data = nullptr;  // its callbacks find nobody
  redisAsyncFree(context_);
}

void Connection::send(const Command& command, Answer answer) {
  if (context_ == nullptr) return;
  std::vector<const char*> words;
  words.reserve(command.words());
  const char* at = command.text_.data();
  for (const size_t length : command.lengths_) {
    words.push_back(at);
    at += length;
  }
  auto kept = std::make_unique<Answer>(std::move(answer));
  const int status =
      redisAsyncCommandArgv(context_, receive, kept.get(), static_cast<int>(words.size()),
                            words.data(), command.lengths_.data());
  if (status != REDIS_OK) return;  // it is about to end
  static_cast<void>(kept.release());
  ++pending_;
}

// Called once for each command, with null when the connection ends.
void Connection::receive(redisAsyncContext* context, void* reply, void* answer) {
  const std::unique_ptr<Answer> kept(static_cast<Answer*>(answer));
  auto* const self = static_cast<Connection*>(context->data);
  if (self == nullptr || reply == nullptr) return;
  --self->pending_;
  ++self->answered_;
  try {
    (*kept)(Reply(static_cast<const redisReply*>(reply)));
  } catch (...) {
    Events::keepException(*context);
  }
}

// The client library frees the context after this with an error, and after disconnected().
void Connection::connected(const redisAsyncContext* context, int status) {
  if (status != REDIS_OK) return end(context);
  const auto* const self = static_cast<Connection*>(context->data);
  if (self == nullptr || !self->encryption_) return;
  auto& established = const_cast<redisAsyncContext&>(*context);
  if (!self->encryption_->begin(established)) redisAsyncFree(&established);  // disconnected()
}

void Connection::disconnected(const redisAsyncContext* context, int) {
  end(context);
}

void Connection::end(const redisAsyncContext* context) {
  auto* const self = static_cast<Connection*>(context->data);
  if (self == nullptr) return;
  std::exchange(self->context_, nullptr)->data = nullptr;
  const bool isNew = self->encryption_ && self->answered_ == 0;
  const std::string refusal = isNew ? self->encryption_->failure() : "";
  try {
    self->owner_.connectionEnded(refusal.empty() ? textOf(context->errstr) : refusal);
  } catch (...) {
    Events::keepException(const_cast<redisAsyncContext&>(*context));
  }
}

void Connection::fail(const std::string& why) {
  failure_ = why;
  redisAsyncFree(std::exchange(context_, nullptr));
  failureTimer_.start(0.0);
}

void Connection::reportFailure() {
  owner_.connectionEnded(failure_);
}

}  // namespace Zorbe::Relay

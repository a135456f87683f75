// SPDX-License-Identifier: MIT
#include "fault/fault.h"

#include "fault/intercept.h"
#include "support/noncopyable.h"

#include <dlfcn.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <stdexcept>

namespace Zorbe::Test::Fault {
namespace {

// Constant-initialized throughout: calls come before and after the program's own
// constructors and destructors have run.
struct Site {
  const char* name;
  std::atomic<unsigned> calls{0};
  std::atomic<unsigned> rules{0};
  std::atomic<void*> next{nullptr};
  std::atomic<void*> standIn{nullptr};
};

Site sites[] = {
#define ZORBE_FAULT_SITE(name) {#name},
    ZORBE_FAULT_CALLS(ZORBE_FAULT_SITE)
#undef ZORBE_FAULT_SITE
};

std::mutex rulesMutex;
std::array<std::atomic<unsigned char>, 65536> journalEntries;
std::atomic<size_t> journalSize{0};
std::atomic<bool> journalOn{false};
std::atomic<bool (*)()> diversionApplies{nullptr};
thread_local int bypassed = 0;

Site& siteOf(Call call) {
  return sites[static_cast<unsigned>(call)];
}

// Never destroyed, since calls outlive static objects.
std::vector<std::shared_ptr<Rule>>& rules() {
  static auto& all = *new std::vector<std::shared_ptr<Rule>>;
  return all;
}

Call callNamed(const std::string& name) {
  for (unsigned i = 0; i < std::size(sites); ++i) {
    if (name == sites[i].name) return static_cast<Call>(i);
  }
  throw std::invalid_argument("no such intercepted call: " + name);
}

class ErrnoKeeper : private NonCopyable {
 public:
  ErrnoKeeper() : value_(errno) {}
  ~ErrnoKeeper() { errno = value_; }

 private:
  int value_;
};

void count(Call call) {
  siteOf(call).calls.fetch_add(1, std::memory_order_relaxed);
  if (!journalOn.load(std::memory_order_relaxed)) return;
  const size_t at = journalSize.fetch_add(1, std::memory_order_relaxed);
  if (at < journalEntries.size()) journalEntries[at] = static_cast<unsigned char>(call);
}

std::string pathOf(const Target& target) {
  if (target.path != nullptr) return target.path;
  char text[PATH_MAX];
  const std::string link = "/proc/self/fd/" + std::to_string(target.fd);
  const ssize_t length = readlink(link.c_str(), text, sizeof text);
  return length < 0 ? std::string() : std::string(text, static_cast<size_t>(length));
}

bool matches(const Rule& rule, Call call, const Target& target) {
  return (rule.choose || rule.call == call) && (rule.fd < 0 || rule.fd == target.fd) &&
         (rule.path.empty() || rule.path == pathOf(target));
}

bool isDue(Rule& rule) {
  ++rule.seen;
  return rule.seen >= rule.occurrence && rule.seen - rule.occurrence < rule.count;
}

// Makes a rule for any call one for this call. False when the call is not to fail.
bool choose(Rule& rule, Call call, const Target& target) {
  const auto failure = rule.choose({siteOf(call).name, pathOf(target)});
  rule.choose = nullptr;
  rule.call = call;
  if (!failure) {
    rule.count = 0;
    return false;
  }
  rule.error = failure->error;
  rule.hasResult = failure->result.has_value();
  rule.result = failure->result.value_or(0);
  return true;
}

// Every matching rule counts the call; the first that is due is selected, and every action.
std::shared_ptr<Rule> select(Call call, const Target& target,
                             std::vector<std::shared_ptr<Rule>>& actions) {
  const std::lock_guard<std::mutex> lock(rulesMutex);
  std::shared_ptr<Rule> selected;
  for (const auto& rule : rules()) {
    if (!matches(*rule, call, target) || !isDue(*rule)) continue;
    if (rule->choose && !choose(*rule, call, target)) continue;
    if (rule->action) {
      actions.push_back(rule);
    } else if (!selected) {
      selected = rule;
    } else {
      continue;
    }
    ++rule->fired;
  }
  return selected;
}

Armed add(Rule rule) {
  const Bypass bypass;
  auto added = std::make_shared<Rule>(std::move(rule));
  const std::lock_guard<std::mutex> lock(rulesMutex);
  rules().push_back(added);
  for (Site& site : sites) {
    if (added->choose || &site == &siteOf(added->call)) site.rules.fetch_add(1);
  }
  return Armed(added);
}

Rule ruleFor(const std::string& call, unsigned occurrence, unsigned count) {
  Rule rule;
  rule.call = callNamed(call);
  rule.occurrence = occurrence;
  rule.count = count;
  return rule;
}

}  // namespace

Armed& Armed::onFd(int fd) {
  rule_->fd = fd;
  return *this;
}

Armed& Armed::onPath(const std::string& path) {
  rule_->path = path;
  return *this;
}

unsigned Armed::fired() const {
  return rule_->fired;
}

Armed arm(const std::string& call, unsigned occurrence, int error, unsigned count) {
  Rule rule = ruleFor(call, occurrence, count);
  rule.error = error;
  return add(std::move(rule));
}

Armed armResult(const std::string& call, unsigned occurrence, long result, unsigned count) {
  Rule rule = ruleFor(call, occurrence, count);
  rule.hasResult = true;
  rule.result = result;
  return add(std::move(rule));
}

Armed armAny(unsigned occurrence,
             std::function<std::optional<Failure>(const InterceptedCall&)> choose, unsigned count) {
  Rule rule;
  rule.occurrence = occurrence;
  rule.count = count;
  rule.choose = std::move(choose);
  return add(std::move(rule));
}

Armed before(const std::string& call, unsigned occurrence, std::function<void()> action) {
  Rule rule = ruleFor(call, occurrence, 1);
  rule.replaces = false;
  rule.action = std::move(action);
  return add(std::move(rule));
}

Armed alterStat(const std::string& call, unsigned occurrence,
                std::function<void(struct stat&)> change) {
  Rule rule = ruleFor(call, occurrence, 1);
  rule.replaces = false;
  rule.change = std::move(change);
  return add(std::move(rule));
}

Armed redirect(const std::string& call, const std::string& path, const std::string& instead) {
  Rule rule = ruleFor(call, 1, kForever);
  rule.replaces = false;
  rule.path = path;
  rule.instead = instead;
  return add(std::move(rule));
}

void divertTo(const std::string& call, void* function) {
  siteOf(callNamed(call)).standIn = function;
}

void divertOnlyWhile(bool (*applies)()) {
  diversionApplies = applies;
}

unsigned calls(const std::string& call) {
  return siteOf(callNamed(call)).calls;
}

void startJournal() {
  journalSize = 0;
  journalOn = true;
}

std::vector<std::string> journal() {
  std::vector<std::string> names;
  const size_t kept = std::min(journalSize.load(), journalEntries.size());
  for (size_t i = 0; i < kept; ++i) names.emplace_back(sites[journalEntries[i]].name);
  return names;
}

std::vector<std::string> unfired() {
  std::vector<std::string> texts;
  for (const auto& rule : rules()) {
    if (rule->fired != 0) continue;
    const char* const name = rule->choose ? "any call" : siteOf(rule->call).name;
    texts.push_back(name + std::string(", occurrence ") + std::to_string(rule->occurrence));
  }
  return texts;
}

void reset() {
  const Bypass bypass;
  const std::lock_guard<std::mutex> lock(rulesMutex);
  for (Site& site : sites) {
    site.calls = 0;
    site.rules = 0;
    site.standIn = nullptr;
  }
  rules().clear();
  diversionApplies = nullptr;
  journalOn = false;
  journalSize = 0;
}

Bypass::Bypass() {
  ++bypassed;
}
Bypass::~Bypass() {
  --bypassed;
}

bool isBypassed() {
  return bypassed != 0;
}

std::shared_ptr<Rule> consult(Call call, Target target) {
  if (bypassed != 0) return nullptr;
  count(call);
  if (siteOf(call).rules.load(std::memory_order_relaxed) == 0) return nullptr;
  const ErrnoKeeper keeper;
  const Bypass bypass;
  std::vector<std::shared_ptr<Rule>> actions;
  auto selected = select(call, target, actions);
  for (const auto& rule : actions) rule->action();
  return selected;
}

void* nextDefinition(Call call) {
  Site& site = siteOf(call);
  if (bypassed == 0) {
    void* const standIn = site.standIn.load(std::memory_order_acquire);
    const auto applies = diversionApplies.load(std::memory_order_acquire);
    if (standIn != nullptr && (applies == nullptr || applies())) return standIn;
  }
  void* next = site.next.load(std::memory_order_acquire);
  if (next != nullptr) return next;
  const ErrnoKeeper keeper;
  next = dlsym(RTLD_NEXT, symbolOf(site.name));
  if (next == nullptr) {
    std::fprintf(stderr, "no definition of %s() to pass calls on to\n", site.name);
    std::abort();
  }
  site.next.store(next, std::memory_order_release);
  return next;
}

}  // namespace Zorbe::Test::Fault

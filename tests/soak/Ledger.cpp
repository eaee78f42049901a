#include "tests/soak/Ledger.h"

#include <local/platform/Log.h>

namespace kvltest {
namespace {

constexpr std::size_t kMostLines = 20;
constexpr std::size_t kMostText = 200;

std::string nameOf(const Ticket& ticket) {
  return std::string(ticket.kind()) + " " + ticket.text();
}

}  // namespace

Ticket::~Ticket() {
  if (outcomes_ == 0) ledger_->fault(&Ledger::Totals::lost, *this, "was never answered");
}

bool Ticket::settle() {
  if (++outcomes_ == 1) return true;
  ledger_->fault(&Ledger::Totals::doubled, *this, "was answered again");
  return false;
}

void Ticket::answered() {
  if (settle()) ledger_->count(&Ledger::Totals::answered, *this);
}

void Ticket::failed(const std::optional<kvl::Error>& error) {
  if (!settle()) return;
  ledger_->count(&Ledger::Totals::failed, *this);
  const auto name = error ? std::string(error->domain()) + " " + std::to_string(error->code())
                          : std::string("none told");
  const kvl::MutexLock lock(ledger_->mutex_);
  ++ledger_->totals_.errors[name];
}

void Ticket::answeredWrongly(const std::string& answer) {
  if (!settle()) return;
  ledger_->fault(&Ledger::Totals::wrong, *this, "got: " + answer.substr(0, kMostText));
}

TicketRef Ledger::open(const char* kind) {
  const kvl::MutexLock lock(mutex_);
  const auto number = before_ + ++totals_.sent;
  ++totals_.sentByKind[kind];
  open_[number] = {kind, Clock::now()};
  return std::make_shared<Ticket>(shared_from_this(), number, kind);
}

void Ledger::count(std::int64_t Totals::* column, const Ticket& ticket) {
  const kvl::MutexLock lock(mutex_);
  ++(totals_.*column);
  open_.erase(ticket.number());
  if (open_.empty()) changed_.notifyAll();
}

void Ledger::fault(std::int64_t Totals::* column, const Ticket& ticket, const std::string& what) {
  count(column, ticket);
  const kvl::MutexLock lock(mutex_);
  if (faults_.size() < kMostLines) faults_.push_back(nameOf(ticket) + " " + what);
}

Ledger::Totals Ledger::totals() const {
  const kvl::MutexLock lock(mutex_);
  auto totals = totals_;
  totals.open = std::ssize(open_);
  return totals;
}

std::vector<std::string> Ledger::faults() const {
  const kvl::MutexLock lock(mutex_);
  return faults_;
}

bool Ledger::waitUntilNothingIsOpen(std::chrono::milliseconds limit) const {
  const auto end = Clock::now() + limit;
  kvl::MutexLock lock(mutex_);
  while (!open_.empty()) {
    if (!changed_.waitUntil(lock, end)) return open_.empty();
  }
  return true;
}

std::vector<std::string> Ledger::openForLongerThan(std::chrono::seconds time) const {
  const auto now = Clock::now();
  std::vector<std::string> lines;
  const kvl::MutexLock lock(mutex_);
  for (const auto& [number, entry] : open_) {
    if (now - entry.since <= time || lines.size() == kMostLines) break;
    const auto age = std::chrono::duration_cast<std::chrono::seconds>(now - entry.since);
    lines.push_back(kvl::format("%@ %ld has been open for %ld s", entry.kind, number, age.count()));
  }
  return lines;
}

}  // namespace kvltest

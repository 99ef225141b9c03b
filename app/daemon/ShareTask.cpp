#include "daemon/ShareTask.hpp"

#include <fmt/format.h>

#include "share/PgConnection.hpp"
#include "share/SharedLedger.hpp"

namespace brimlog {

ShareTask::ShareTask(const ShareSettings& settings, Tell tell)
    : settings_(settings), tell_(std::move(tell)), due_(settings.to.has_value()) {}

ShareTask::~ShareTask() = default;

void ShareTask::runIfDue(UsageStore& store) {
  if (!due_ || !settings_.to) return;
  try {
    if (!ledger_) ledger_ = std::make_unique<SharedLedger>(*settings_.to);
    ledger_->share(store, settings_.machine.value(), settings_.user.value_or(""));
    due_ = failed_ = false;
    if (!lastFailure_.empty()) tell_("sharing works again: " + ledger_->name());
    lastFailure_.clear();
  } catch (const std::exception& error) {
    // A connection that failed may be broken for good; the next try opens a new one.
    ledger_.reset();
    due_ = false;
    failed_ = true;
    if (error.what() != lastFailure_) {
      lastFailure_ = error.what();
      tell_(fmt::format("cannot share to {}, trying again after the next pass: {}",
                        PgConnection::redacted(*settings_.to), lastFailure_));
    }
  }
}

}  // namespace brimlog

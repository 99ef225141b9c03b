#include "share/SharedLedger.hpp"

#include "share/PgConnection.hpp"

namespace brimlog {

SharedLedger::SharedLedger(const std::string& target, SharedFilter filter)
    : filter_(std::move(filter)) {
  throw SharedLedgerError(PgConnection::redacted(target) + ": sharing is not built yet");
}
SharedLedger::~SharedLedger() = default;
ShareResult SharedLedger::share(UsageStore&, const std::string&, const std::string&,
                                const std::function<void(const ShareProgress&)>&) {
  return {};
}
std::vector<SharedMachine> SharedLedger::machines() { return {}; }
LedgerRows SharedLedger::ledger(const LedgerFilter&) { return {}; }
LedgerDays SharedLedger::days(const LedgerFilter&, const Calendar&) { return {}; }
const std::string& SharedLedger::name() const {
  static const std::string none;
  return none;
}

}  // namespace brimlog

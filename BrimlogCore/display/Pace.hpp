#pragma once

namespace brimlog {

/// How fast a limit window's quota goes compared with its time: `under` when the share used
/// lags the share of time gone by more than 15 points, `over` when it leads by more than 5,
/// `onPace` between, and `unknown` when there is nothing to compare with (no reset time, no
/// length, or the reset has passed).
enum class Pace { under, onPace, over, unknown };

}  // namespace brimlog

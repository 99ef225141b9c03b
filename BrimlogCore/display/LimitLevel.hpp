#pragma once

namespace brimlog {

/// How close a limit window is to running out, by the share used: `warning` from 80%,
/// `critical` from 95%. Every screen colours a window by it (yellow, red), and the desktop
/// notifications fire as a window enters each level.
enum class LimitLevel { normal, warning, critical };

constexpr double kLimitWarningShare = 0.80;
constexpr double kLimitCriticalShare = 0.95;

constexpr LimitLevel limitLevelOf(double usedFraction) {
  if (usedFraction >= kLimitCriticalShare) return LimitLevel::critical;
  if (usedFraction >= kLimitWarningShare) return LimitLevel::warning;
  return LimitLevel::normal;
}

}  // namespace brimlog

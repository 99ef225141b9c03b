#pragma once

#include <string>
#include <string_view>

#include "display/Pace.hpp"
#include "model/ProviderID.hpp"

namespace brimlog {

/// How coloured text is marked for the screen that shows it: ANSI escapes for a terminal, tmux's
/// `#[…]` styles, polybar's `%{F…}` tags, or no marks at all. Every screen draws a provider in
/// its accent (Claude's orange as true colour; the primary text colour as bold and the secondary
/// one as dim where the markup has those) and warnings in yellow, critical figures in red.
///
///     const ColorMarkup tmux{ColorMarkup::Kind::tmux};
///     tmux.paint("Claude", tmux.accent(ProviderID::claude));  // "#[fg=#d97757]Claude#[default]"
///     ColorMarkup{ColorMarkup::Kind::none}.paint("Claude", "");  // "Claude"
class ColorMarkup {
 public:
  enum class Kind { none, ansi, tmux, polybar };

  /// The escapes behind the `ansi` kind.
  struct Ansi {
    static constexpr std::string_view reset = "\x1b[0m";
    static constexpr std::string_view bold = "\x1b[1m";
    static constexpr std::string_view dim = "\x1b[2m";
    static constexpr std::string_view yellow = "\x1b[33m";
    static constexpr std::string_view red = "\x1b[31m";
  };

  explicit ColorMarkup(Kind kind) : kind_(kind) {}

  Kind kind() const { return kind_; }

  /// The mark that starts the provider's accent; empty where the markup cannot show it.
  std::string accent(ProviderID provider) const;
  std::string warning() const;
  std::string critical() const;
  /// Back to the screen's own colours and weight.
  std::string reset() const;

  /// `text` (escaped for the markup) between `mark` and a reset; the escaped text alone when
  /// `mark` is empty.
  std::string paint(std::string_view text, std::string_view mark) const;

  /// `text` with the characters that the markup would read as marks escaped: "#" doubled for
  /// tmux, "%{" as "%%{" for polybar.
  std::string escape(std::string_view text) const;

  /// "over pace", "under pace", "on pace", or nothing for an unknown pace.
  static std::string_view paceText(Pace pace);

 private:
  Kind kind_;
};

}  // namespace brimlog

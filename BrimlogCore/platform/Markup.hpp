#pragma once

#include <string>
#include <string_view>

namespace brimlog {

/// Text for XML-like markup (HTML, Pango): &, <, >, " and ' written as references, so that it
/// shows literally in element content and in quoted attributes alike.
///
///     Markup::escape("R&D <1>");  // "R&amp;D &lt;1&gt;"
struct Markup {
  static std::string escape(std::string_view text);
};

}  // namespace brimlog

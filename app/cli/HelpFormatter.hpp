#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace brimlog {

/// CLI11's help, wrapped to 80 columns: a long line breaks between words, and an option's or a
/// command's description goes on in its own column.
class HelpFormatter : public CLI::Formatter {
 public:
  static constexpr size_t kWidth = 80;

  std::string make_help(const CLI::App* app, std::string name,
                        CLI::AppFormatMode mode) const override;
};

}  // namespace brimlog

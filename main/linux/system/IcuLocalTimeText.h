#pragma once

#include <memory>
#include <optional>
#include <string>

#include "ports/LocalTimeText.h"

namespace marigold {

/// Times by ICU, which is first touched when a text is first asked for. Belongs to one thread.
class IcuLocalTimeText final : public LocalTimeText {
 public:
  /// `locale` is written as in LC_TIME, "de_DE.UTF-8"; one that is not known, such as "C", counts
  /// as en_US. Without a `zone` ("Europe/Berlin") the system's is used, as it is set at each call.
  explicit IcuLocalTimeText(std::string locale, std::optional<std::string> zone = {});
  IcuLocalTimeText(const IcuLocalTimeText&) = delete;
  IcuLocalTimeText& operator=(const IcuLocalTimeText&) = delete;
  ~IcuLocalTimeText() override;

  [[nodiscard]] std::string weekdayAndTime(Date date) const override;

 private:
  struct Formatter;

  std::string locale_;
  std::optional<std::string> zone_;
  mutable std::unique_ptr<Formatter> formatter_;  ///< opened by the first use
};

}  // namespace marigold

#pragma once

#include <memory>

#include "ports/ApplicationControl.h"

class QDialog;

namespace marigold {

/// The application as a Linux desktop sees it: a set of windows, each of which asks for the
/// keyboard itself when it opens, without a menu of its own.
class LinuxApplicationControl final : public ApplicationControl {
 public:
  LinuxApplicationControl();
  LinuxApplicationControl(const LinuxApplicationControl&) = delete;
  LinuxApplicationControl& operator=(const LinuxApplicationControl&) = delete;
  ~LinuxApplicationControl() override;

  void showAbout(const AboutPanel& about) override;
  void quit() override;
  void leaveRegardless(Seconds after) override;

 private:
  std::unique_ptr<QDialog> about_;
};

}  // namespace marigold

#pragma once

#include <string>

#include "base/Pinned.h"
#include "base/Time.h"

namespace marigold {

/// What the About panel says.
struct AboutPanel {
  std::string title;  ///< of its window, where that has one
  std::string name;
  std::string version;
  std::string credits;  ///< paragraphs separated by line feeds

  bool operator==(const AboutPanel&) const = default;
};

/// The application as the desktop sees it.
class ApplicationControl : public Pinned {
 public:
  /// Installs the application's main menu, where the desktop has such a thing.
  virtual void installMainMenu() {}
  /// Brings the application to the front, so that a window it opens gets the keyboard.
  virtual void activate() {}
  /// Shows the About panel, or brings the one that is shown to the front.
  virtual void showAbout(const AboutPanel& about) = 0;
  /// Ends the event loop; the application then shuts down in order.
  virtual void quit() = 0;
  /// Has the process leave after so long, whatever still blocks it then. Does not wait.
  virtual void leaveRegardless(Seconds after) = 0;
};

}  // namespace marigold

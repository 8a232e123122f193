#include "linux/system/LinuxAttention.h"

#include <cerrno>
#include <cstdint>
#include <limits>
#include <list>
#include <utility>
#include <vector>

#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtDBus/QDBusConnection>
#include <sys/timerfd.h>
#include <unistd.h>

namespace marigold {

// Receives the D-Bus signals and tells who is registered.
class LinuxAttention::Signals final : public QObject {
  Q_OBJECT

 public:
  struct Entry {
    AttentionEvent event;
    std::function<void()> callback;
  };

  void hearSystem(QDBusConnection bus) {
    bus.connect(QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
                QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("PrepareForSleep"),
                this, SLOT(sleepChanged(bool)));
  }
  // Each desktop's screen saver sends the same signal under its own name and path.
  void hearSession(QDBusConnection bus) {
    for (const auto& interface :
         {QStringLiteral("org.freedesktop.ScreenSaver"), QStringLiteral("org.gnome.ScreenSaver"),
          QStringLiteral("org.cinnamon.ScreenSaver"), QStringLiteral("org.mate.ScreenSaver"),
          QStringLiteral("org.xfce.ScreenSaver")}) {
      bus.connect(QString(), QString(), interface, QStringLiteral("ActiveChanged"), this,
                  SLOT(screenSaverChanged(bool)));
    }
  }

  std::list<std::shared_ptr<Entry>> entries;

  void tell(AttentionEvent event) const {
    const std::vector<std::shared_ptr<Entry>> told(entries.begin(), entries.end());
    for (const auto& entry : told) {
      // A callback may have ended another registration; that one is not called any more.
      if (entry->event == event && entry->callback) {
        const auto callback = entry->callback;  // a callback may end its own registration
        callback();
      }
    }
  }

 private Q_SLOTS:
  void sleepChanged(bool goingToSleep) const {
    if (!goingToSleep) {
      tell(AttentionEvent::wake);
    }
  }
  void screenSaverChanged(bool active) const {
    if (!active) {
      tell(AttentionEvent::screenWake);
    }
  }
};

class LinuxAttention::Registration final : public AttentionObserver {
 public:
  Registration(std::weak_ptr<Signals> receiver, std::shared_ptr<Signals::Entry> entry)
      : receiver_(std::move(receiver)), entry_(std::move(entry)) {}
  Registration(const Registration&) = delete;
  Registration& operator=(const Registration&) = delete;
  ~Registration() override {
    entry_->callback = nullptr;
    if (const auto receiver = receiver_.lock()) {
      receiver->entries.remove(entry_);
    }
  }

 private:
  std::weak_ptr<Signals> receiver_;
  std::shared_ptr<Signals::Entry> entry_;
};

namespace {

// A timer that never fires but is cancelled by the kernel whenever the wall clock is set.
void armClock(int descriptor) {
  itimerspec never = {};
  never.it_value.tv_sec = std::numeric_limits<time_t>::max();
  (void)::timerfd_settime(descriptor, TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &never, nullptr);
}

}  // namespace

LinuxAttention::LinuxAttention(LinuxEventLoop& loop, BusLink& sessionBus, BusLink& systemBus)
    : loop_(loop),
      clock_(::timerfd_create(CLOCK_REALTIME, TFD_CLOEXEC | TFD_NONBLOCK)),
      receiver_(std::make_shared<Signals>()),
      session_(sessionBus.follow([this](const auto& bus) { receiver_->hearSession(bus); })),
      system_(systemBus.follow([this](const auto& bus) { receiver_->hearSystem(bus); })),
      desktop_(CurrentDesktop::follow([this] { receiver_->tell(AttentionEvent::spaceChange); })) {
  armClock(clock_.get());
  loop_.watch(clock_.get(), [this] {
    std::uint64_t count = 0;
    const ssize_t got = ::read(clock_.get(), &count, sizeof count);
    if (got < 0 && errno == ECANCELED) {
      armClock(clock_.get());
      receiver_->tell(AttentionEvent::clockChange);
    }
  });
}

LinuxAttention::~LinuxAttention() {
  loop_.unwatch(clock_.get());
}

std::unique_ptr<AttentionObserver> LinuxAttention::observe(AttentionEvent event,
                                                           std::function<void()> callback) {
  if (event == AttentionEvent::spaceChange && !desktop_) {
    return nullptr;
  }
  auto entry = std::make_shared<Signals::Entry>(
      Signals::Entry{.event = event, .callback = std::move(callback)});
  receiver_->entries.push_back(entry);
  return std::make_unique<Registration>(receiver_, std::move(entry));
}

}  // namespace marigold

#include "LinuxAttention.moc"

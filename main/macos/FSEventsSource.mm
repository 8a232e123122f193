#include "macos/FSEventsSource.h"

#include <utility>
#include <vector>

#import <CoreServices/CoreServices.h>

#include "macos/MacText.h"

namespace marigold {

namespace {

class FSEventsStream final : public EventStream {
 public:
  FSEventsStream(const std::string& path, Seconds latency, EventStreamSource::Callback callback,
                 const std::string& queueLabel)
      : callback_(std::move(callback)),
        queue_(dispatch_queue_create(queueLabel.c_str(), DISPATCH_QUEUE_SERIAL)) {
    FSEventStreamContext context = {.version = 0,
                                    .info = this,
                                    .retain = nullptr,
                                    .release = nullptr,
                                    .copyDescription = nullptr};
    stream_ = FSEventStreamCreate(nullptr, fsEventsCallback, &context,
                                  (__bridge CFArrayRef) @[ toMac(path) ],
                                  kFSEventStreamEventIdSinceNow, latency.count(), creationFlags);
    if (stream_ != nullptr) {
      FSEventStreamSetDispatchQueue(stream_, queue_);
      started_ = FSEventStreamStart(stream_) != 0;
    }
  }
  FSEventsStream(const FSEventsStream&) = delete;
  FSEventsStream& operator=(const FSEventsStream&) = delete;
  ~FSEventsStream() override {
    if (stream_ != nullptr) {
      if (started_) {
        FSEventStreamStop(stream_);
      }
      FSEventStreamInvalidate(stream_);
      dispatch_sync(queue_, ^{
                    });  // a delivery that had begun has ended: it still uses the stream
      FSEventStreamRelease(stream_);
    }
  }

  [[nodiscard]] bool isStarted() const { return started_; }

 private:
  static constexpr FSEventStreamCreateFlags creationFlags =
      kFSEventStreamCreateFlagUseCFTypes | kFSEventStreamCreateFlagNoDefer |
      kFSEventStreamCreateFlagWatchRoot | kFSEventStreamCreateFlagFileEvents;

  static void fsEventsCallback(ConstFSEventStreamRef /*stream*/, void* info, std::size_t count,
                               void* paths, const FSEventStreamEventFlags* flags,
                               const FSEventStreamEventId* /*ids*/) {
    @autoreleasepool {
      NSArray<NSString*>* const list = (__bridge NSArray*)paths;
      std::vector<FileEvent> events;
      events.reserve(count);
      for (std::size_t i = 0; i < count; ++i) {
        events.push_back({.path = fromMac(list[i]), .flags = flags[i]});
      }
      static_cast<const FSEventsStream*>(info)->callback_(events);
    }
  }

  const EventStreamSource::Callback callback_;
  const dispatch_queue_t queue_;
  FSEventStreamRef stream_ = nullptr;
  bool started_ = false;
};

}  // namespace

std::unique_ptr<EventStream> FSEventsSource::open(const std::string& path, Seconds latency,
                                                  Callback callback) {
  @autoreleasepool {
    auto stream = std::make_unique<FSEventsStream>(path, latency, std::move(callback), queueLabel_);
    return stream->isStarted() ? std::move(stream) : nullptr;
  }
}

}  // namespace marigold

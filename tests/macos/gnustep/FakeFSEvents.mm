// FSEvents and the serial queues of libdispatch over Linux's own file events. Deliveries keep the
// documented contract: on the stream's queue, none begun after FSEventStreamInvalidate. Only the
// flags that Marigold uses are offered. Event identifiers are counted; history is not kept, nor
// that paths are told without links.
#include "macos/gnustep/FakeFSEvents.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#import <CoreServices/CoreServices.h>

#include "linux/system/InotifyStream.h"
#include "macos/MacText.h"
#include "ports/Log.h"

using marigold::EventStream;
using marigold::FileEvent;
using marigold::InotifyStreamSource;
using marigold::Seconds;

// A serial queue with a thread of its own, which runs what was put in before it ends.
@interface MGQueue : NSObject
- (instancetype)initWithLabel:(const char*)label;
- (void)put:(std::function<void()>)work;
@end

@implementation MGQueue {
  std::mutex _mutex;
  std::condition_variable _changed;
  std::deque<std::function<void()>> _work;
  bool _ends;
  std::thread _thread;
}
- (instancetype)initWithLabel:(const char*)label {
  if ((self = [super init]) != nil) {
    fake::queueLabels.emplace_back(label);
    __unsafe_unretained MGQueue* const queue = self;
    _thread = std::thread([queue] { [queue run]; });
  }
  return self;
}
- (void)dealloc {
  {
    const std::lock_guard lock(_mutex);
    _ends = true;
  }
  _changed.notify_one();
  if (_thread.get_id() == std::this_thread::get_id()) {
    _thread.detach();
  } else {
    _thread.join();
  }
}
- (void)put:(std::function<void()>)work {
  {
    const std::lock_guard lock(_mutex);
    _work.push_back(std::move(work));
  }
  _changed.notify_one();
}
- (void)run {
  std::unique_lock lock(_mutex);
  while (true) {
    _changed.wait(lock, [&] { return _ends || !_work.empty(); });
    if (_work.empty()) {
      return;
    }
    auto work = std::move(_work.front());
    _work.pop_front();
    lock.unlock();
    @autoreleasepool {
      work();
      work = {};
    }
    lock.lock();
  }
}
@end

static MGQueue* queueOf(id object) {
  return (MGQueue*)object;
}

extern "C" {
dispatch_queue_t dispatch_queue_create(const char* label, dispatch_queue_attr_t) {
  return (dispatch_queue_t)[[MGQueue alloc] initWithLabel:label];
}
void dispatch_async(dispatch_queue_t queue, dispatch_block_t block) {
  [queueOf(queue) put:[block] { block(); }];
}
void dispatch_sync(dispatch_queue_t queue, __attribute__((noescape)) dispatch_block_t block) {
  std::mutex mutex;
  std::condition_variable changed;
  bool done = false;
  fake::streamCalls += " sync";
  [queueOf(queue) put:[&] {
    block();
    const std::lock_guard lock(mutex);
    done = true;
    changed.notify_one();
  }];
  std::unique_lock lock(mutex);
  changed.wait(lock, [&] { return done; });
}
}

namespace {

constexpr FSEventStreamCreateFlags offered =
    kFSEventStreamCreateFlagUseCFTypes | kFSEventStreamCreateFlagNoDefer |
    kFSEventStreamCreateFlagWatchRoot | kFSEventStreamCreateFlagFileEvents;

struct Silent final : marigold::Log {
  void note(std::string_view /*line*/) override {}
  void error(std::string_view /*line*/) override {}
};

}  // namespace

// What deliveries that wait in the queue still need.
struct Receiver {
  FSEventStreamCallback callback;
  void* info;
  std::atomic<bool> isValid = true;
};

struct __FSEventStream {
  std::string path;
  Seconds latency;
  std::shared_ptr<Receiver> receiver;
  dispatch_queue_t queue = nil;
  std::unique_ptr<EventStream> stream = nullptr;
};

static void deliver(FSEventStreamRef stream, const Receiver& receiver,
                    const std::vector<FileEvent>& events) {
  if (!receiver.isValid) {
    return;
  }
  NSMutableArray* const paths = [NSMutableArray array];
  std::vector<FSEventStreamEventFlags> flags;
  std::vector<FSEventStreamEventId> ids;
  for (const FileEvent& each : events) {
    [paths addObject:marigold::toMac(each.path)];
    flags.push_back(each.flags);
    ids.push_back(ids.size() + 1);
  }
  receiver.callback(stream, receiver.info, events.size(), (__bridge void*)paths, flags.data(),
                    ids.data());
}

extern "C" {
FSEventStreamRef FSEventStreamCreate(CFAllocatorRef, FSEventStreamCallback callback,
                                     FSEventStreamContext* context, CFArrayRef paths,
                                     FSEventStreamEventId since, CFTimeInterval latency,
                                     FSEventStreamCreateFlags flags) {
  NSArray* const list = (__bridge NSArray*)paths;
  fake::streamFlags = flags;
  fake::streamLatency = latency;
  fake::streamCalls = "create";
  if ((flags & offered) != flags || (flags & kFSEventStreamCreateFlagUseCFTypes) == 0 ||
      list.count != 1 || since != kFSEventStreamEventIdSinceNow) {
    return nullptr;
  }
  auto receiver = std::make_shared<Receiver>(callback, context->info);
  return new __FSEventStream{marigold::fromMac(list[0]), Seconds{latency}, std::move(receiver)};
}
void FSEventStreamSetDispatchQueue(FSEventStreamRef stream, dispatch_queue_t queue) {
  fake::streamCalls += " schedule";
  stream->queue = queue;
}
Boolean FSEventStreamStart(FSEventStreamRef stream) {
  static Silent silent;
  static InotifyStreamSource source(silent);
  fake::streamCalls += " start";
  MGQueue* const queue = queueOf(stream->queue);
  stream->stream =
      fake::streamsStart
          ? source.open(
                stream->path, stream->latency,
                [stream, queue, receiver = stream->receiver](const std::vector<FileEvent>& events) {
                  [queue put:[stream, receiver, events] { deliver(stream, *receiver, events); }];
                })
          : nullptr;
  return stream->stream != nullptr;
}
void FSEventStreamStop(FSEventStreamRef stream) {
  fake::streamCalls += " stop";
  stream->stream.reset();
}
void FSEventStreamInvalidate(FSEventStreamRef stream) {
  fake::streamCalls += " invalidate";
  stream->stream.reset();
  stream->receiver->isValid = false;
  stream->queue = nil;
}
void FSEventStreamRelease(FSEventStreamRef stream) {
  fake::streamCalls += " release";
  delete stream;
}
}

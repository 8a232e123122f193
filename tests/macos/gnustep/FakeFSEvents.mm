// FSEvents and the serial queues of libdispatch over Linux's own file events. Deliveries keep the
// documented contract: on the stream's queue, none after FSEventStreamInvalidate. Of the flags at
// creation only those that tell files from directories are looked at; event identifiers are
// counted, and history is not kept.
#include "macos/gnustep/FakeFSEvents.h"

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

struct Silent final : marigold::Log {
  void note(std::string_view /*line*/) override {}
  void error(std::string_view /*line*/) override {}
};

}  // namespace

struct __FSEventStream {
  FSEventStreamCallback callback;
  void* info;
  std::string path;
  double latency;
  dispatch_queue_t queue = nil;
  std::unique_ptr<EventStream> stream = nullptr;
  bool valid = true;  // the queue's
};

extern "C" {
FSEventStreamRef FSEventStreamCreate(CFAllocatorRef, FSEventStreamCallback callback,
                                     FSEventStreamContext* context, CFArrayRef paths,
                                     FSEventStreamEventId since, CFTimeInterval latency,
                                     FSEventStreamCreateFlags flags) {
  NSArray* const list = (__bridge NSArray*)paths;
  fake::streamFlags = flags;
  fake::streamLatency = latency;
  if ((flags & kFSEventStreamCreateFlagUseCFTypes) != 0 || list.count != 1 ||
      since != kFSEventStreamEventIdSinceNow) {
    return nullptr;  // not offered
  }
  return new __FSEventStream{callback, context->info, [(NSString*)list[0] UTF8String], latency};
}
void FSEventStreamSetDispatchQueue(FSEventStreamRef stream, dispatch_queue_t queue) {
  stream->queue = queue;
}
Boolean FSEventStreamStart(FSEventStreamRef stream) {
  static Silent silent;
  static InotifyStreamSource source(silent);
  stream->stream = source.open(stream->path, Seconds{stream->latency},
                               [stream](const std::vector<FileEvent>& events) {
                                 dispatch_sync(stream->queue, ^{
                                   std::vector<const char*> paths;
                                   std::vector<FSEventStreamEventFlags> flags;
                                   std::vector<FSEventStreamEventId> ids;
                                   for (const FileEvent& each : events) {
                                     paths.push_back(each.path.c_str());
                                     flags.push_back(each.flags);
                                     ids.push_back(ids.size() + 1);
                                   }
                                   if (stream->valid) {
                                     stream->callback(stream, stream->info, paths.size(),
                                                      paths.data(), flags.data(), ids.data());
                                   }
                                 });
                               });
  return stream->stream != nullptr;
}
void FSEventStreamStop(FSEventStreamRef stream) {
  stream->stream.reset();
}
void FSEventStreamInvalidate(FSEventStreamRef stream) {
  stream->stream.reset();
  stream->valid = false;
}
void FSEventStreamRelease(FSEventStreamRef stream) {
  delete stream;
}
}

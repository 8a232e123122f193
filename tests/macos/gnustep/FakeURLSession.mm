// NSURLSession, its configuration and data tasks, without a network. Delegate messages come in the
// documented order on the session's queue; data that was under way still comes after a cancel. The
// delegate is kept until the session is invalidated and its tasks have ended. Completion handlers
// and more than one task a session are not kept.
#include "macos/gnustep/FakeURLSession.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#import <Foundation/Foundation.h>

#include "macos/MacText.h"

#pragma clang diagnostic ignored "-Wincomplete-implementation"
#pragma clang diagnostic ignored "-Wobjc-property-implementation"

using Clock = std::chrono::steady_clock;
using marigold::fromMac;
using marigold::toMac;

@implementation NSURLSessionConfiguration
+ (NSURLSessionConfiguration*)ephemeralSessionConfiguration {
  return [[self alloc] init];
}
- (instancetype)init {
  if ((self = [super init])) {
    self.timeoutIntervalForRequest = 60;
    self.timeoutIntervalForResource = 7 * 24 * 3600;
    self.HTTPShouldSetCookies = YES;
  }
  return self;
}
- (id)copyWithZone:(NSZone*)zone {
  (void)zone;
  return self;
}
@end

@interface NSURLSessionTask ()
- (instancetype)initWithSession:(NSURLSession*)session request:(NSURLRequest*)request;
@end

@interface NSURLSession ()
- (void)taskEnded;
@end

@implementation NSURLSessionTask {
  NSURLSession* _session;
  NSURLRequest* _request;
  std::mutex _mutex;
  std::condition_variable _changed;
  bool _cancelled;
  Clock::time_point _deadline;
}
- (instancetype)initWithSession:(NSURLSession*)session request:(NSURLRequest*)request {
  if ((self = [super init])) {
    _session = session;
    _request = request;
  }
  return self;
}
- (id)copyWithZone:(NSZone*)zone {
  (void)zone;
  return self;
}
- (NSURLRequest*)originalRequest {
  return _request;
}
- (void)cancel {
  const std::lock_guard lock(_mutex);
  _cancelled = true;
  _changed.notify_all();
}
- (void)resume {
  const NSTimeInterval limit = _session.configuration.timeoutIntervalForResource;
  _deadline = Clock::now() +
              std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(limit));
  std::thread([self] {
    @autoreleasepool {
      [self run];
    }
  }).detach();
}
/// Waits until `done` or for so long; the error that ended the wait before, or 0.
- (long)wait:(double)seconds until:(const bool*)done {
  std::unique_lock lock(_mutex);
  const auto until =
      std::min(_deadline, Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                             std::chrono::duration<double>(seconds)));
  (void)_changed.wait_until(lock, until, [&] { return _cancelled || (done != nullptr && *done); });
  if (_cancelled) {
    return NSURLErrorCancelled;
  }
  return Clock::now() >= _deadline ? long{NSURLErrorTimedOut} : 0;
}
/// Has the delegate asked on its queue; `ask` gets what to call once it has decided.
- (long)ask:(void (^)(id<NSURLSessionDataDelegate>, void (^decided)(void)))ask {
  auto done = std::make_shared<bool>(false);
  const id delegate = _session.delegate;
  [_session.delegateQueue addOperationWithBlock:^{
    ask(delegate, ^{
      const std::lock_guard lock(self->_mutex);
      *done = true;
      self->_changed.notify_all();
    });
  }];
  return [self wait:1e6 until:done.get()];
}
- (NSHTTPURLResponse*)responseOf:(int)status
                         headers:(const std::map<std::string, std::string>&)headers {
  NSMutableDictionary* const fields = [[NSMutableDictionary alloc] init];
  for (const auto& [name, value] : headers) {
    fields[toMac(name)] = toMac(value);
  }
  return [[NSHTTPURLResponse alloc] initWithURL:_request.URL
                                     statusCode:status
                                    HTTPVersion:@"HTTP/1.1"
                                   headerFields:fields];
}
- (void)run {
  const fake::Server server = fake::server;
  NSURLSession* const session = _session;
  NSURLSessionConfiguration* const setup = session.configuration;
  fake::heard.method = fromMac(_request.HTTPMethod);
  fake::heard.url = fromMac(_request.URL.absoluteString);
  for (NSString* each in _request.allHTTPHeaderFields) {
    fake::heard.headers[fromMac(each)] = fromMac(_request.allHTTPHeaderFields[each]);
  }
  fake::heard.configuration =
      std::string(setup.URLCache == nil ? "" : "cache ") +
      (setup.HTTPCookieStorage == nil ? "" : "cookies ") +
      (setup.URLCredentialStorage == nil ? "" : "credentials ") +
      (setup.HTTPShouldSetCookies ? "set-cookies " : "") +
      (setup.TLSMinimumSupportedProtocolVersion >= tls_protocol_version_TLSv12 ? "" : "old TLS");
  long error = [self wait:server.firstByteAfter until:nullptr];
  if (error == 0) {
    error = server.error;
  }
  int status = server.status;
  if (error == 0 && !server.redirectTo.empty()) {
    NSHTTPURLResponse* const response = [self responseOf:302
                                                 headers:{{"Location", server.redirectTo}}];
    NSURLRequest* const next =
        [NSURLRequest requestWithURL:[NSURL URLWithString:toMac(server.redirectTo)]];
    __block NSURLRequest* chosen = next;
    error = [self ask:^(id<NSURLSessionDataDelegate> delegate, void (^decided)(void)) {
      if (![delegate respondsToSelector:@selector
                     (URLSession:task:willPerformHTTPRedirection:newRequest:completionHandler:)]) {
        return decided();
      }
      [delegate URLSession:session
                                task:self
          willPerformHTTPRedirection:response
                          newRequest:next
                   completionHandler:^(NSURLRequest* request) {
                     chosen = request;
                     decided();
                   }];
    }];
    fake::heard.followed = chosen != nil;
    if (chosen == nil) {
      status = 302;
    }
  }
  if (error == 0) {
    NSHTTPURLResponse* const response = [self responseOf:status headers:server.headers];
    __block NSURLSessionResponseDisposition chosen = NSURLSessionResponseAllow;
    error = [self ask:^(id<NSURLSessionDataDelegate> delegate, void (^decided)(void)) {
      [delegate URLSession:session
                    dataTask:(NSURLSessionDataTask*)self
          didReceiveResponse:response
           completionHandler:^(NSURLSessionResponseDisposition disposition) {
             chosen = disposition;
             decided();
           }];
    }];
    if (error == 0 && chosen != NSURLSessionResponseAllow) {
      error = NSURLErrorCancelled;
    }
  }
  const id<NSURLSessionDataDelegate> delegate = (id<NSURLSessionDataDelegate>)session.delegate;
  for (const std::string& chunk : server.chunks) {
    if (error == 0) {
      error = [self wait:server.betweenChunks until:nullptr];
    }
    if (error != 0) {
      break;
    }
    NSData* const data = [NSData dataWithBytes:chunk.data() length:chunk.size()];
    [session.delegateQueue addOperationWithBlock:^{
      [delegate URLSession:session dataTask:(NSURLSessionDataTask*)self didReceiveData:data];
    }];
  }
  [session.delegateQueue addOperationWithBlock:^{
    // A task that is cancelled before its end was told ends cancelled.
    const long last = error != 0 ? error : [self wait:0 until:nullptr];
    fake::heard.ended = last;
    [delegate URLSession:session
                        task:self
        didCompleteWithError:last != 0 ? [NSError errorWithDomain:@"NSURLErrorDomain"
                                                             code:last
                                                         userInfo:nil]
                                       : nil];
    [session taskEnded];
  }];
}
@end
@implementation NSURLSessionDataTask
@end

@implementation NSURLSession {
  NSURLSessionTask* _task;
  bool _invalid;
}
@synthesize delegate = _delegate, delegateQueue = _delegateQueue, configuration = _configuration;
+ (NSURLSession*)sessionWithConfiguration:(NSURLSessionConfiguration*)configuration
                                 delegate:(id<NSURLSessionDelegate>)delegate
                            delegateQueue:(NSOperationQueue*)queue {
  NSURLSession* const session = [[self alloc] init];
  ++fake::sessions;
  session->_configuration = configuration;
  session->_delegate = delegate;
  session->_delegateQueue = queue;
  if (queue == nil) {
    session->_delegateQueue = [[NSOperationQueue alloc] init];
    session->_delegateQueue.maxConcurrentOperationCount = 1;
  }
  return session;
}
- (void)dealloc {
  --fake::sessions;
}
- (NSURLSessionDataTask*)dataTaskWithRequest:(NSURLRequest*)request {
  _task = [[NSURLSessionDataTask alloc] initWithSession:self request:request];
  return (NSURLSessionDataTask*)_task;
}
- (void)taskEnded {
  @synchronized(self) {
    _task = nil;
    if (_invalid) {
      [self letGo];
    }
  }
}
- (void)letGo {
  const id delegate = _delegate;
  _delegate = nil;
  fake::heard.invalidated = true;
  if ([delegate respondsToSelector:@selector(URLSession:didBecomeInvalidWithError:)]) {
    [delegate URLSession:self didBecomeInvalidWithError:nil];
  }
}
- (void)finishTasksAndInvalidate {
  @synchronized(self) {
    _invalid = true;
    if (_task == nil) {
      [self letGo];
    }
  }
}
- (void)invalidateAndCancel {
  NSURLSessionTask* task;
  @synchronized(self) {
    task = _task;
  }
  [task cancel];
  [self finishTasksAndInvalidate];
}
@end

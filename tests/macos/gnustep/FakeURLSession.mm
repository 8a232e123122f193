// NSURLSession, its configuration and data tasks, without a network. Delegate messages come in the
// documented order on the session's queue; data that was under way still comes after a cancel. The
// delegate is kept until the session is invalidated and its tasks have ended. Completion handlers
// and more than one task a session are not kept.
#include "macos/gnustep/FakeURLSession.h"

#include <condition_variable>
#include <mutex>
#include <thread>

#import <Foundation/Foundation.h>

#include "macos/MacText.h"

#pragma clang diagnostic ignored "-Wincomplete-implementation"
#pragma clang diagnostic ignored "-Wobjc-property-implementation"

extern "C" NSString* const NSURLAuthenticationMethodServerTrust =
    @"NSURLAuthenticationMethodServerTrust";

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
    self.waitsForConnectivity = YES;
    self.URLCache = (id) @"kept";
    self.HTTPCookieStorage = (id) @"kept";
    self.URLCredentialStorage = (id) @"kept";
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
  std::thread([self] {
    @autoreleasepool {
      [self run];
    }
  }).detach();
}
/// Waits until `done` unless it is cancelled before; the error that ends the task, or 0.
- (long)waitUntil:(const bool*)done {
  std::unique_lock lock(_mutex);
  _changed.wait(lock, [&] { return _cancelled || *done; });
  return _cancelled ? NSURLErrorCancelled : 0;
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
  return [self waitUntil:done.get()];
}
/// One challenge, told to the task's method; those of sessions are not kept.
- (long)challenge:(NSString*)method {
  NSURLProtectionSpace* const space = [[NSURLProtectionSpace alloc] initWithHost:_request.URL.host
                                                                            port:443
                                                                        protocol:@"https"
                                                                           realm:nil
                                                            authenticationMethod:method];
  NSURLAuthenticationChallenge* const asked =
      [[NSURLAuthenticationChallenge alloc] initWithProtectionSpace:space
                                                 proposedCredential:nil
                                               previousFailureCount:0
                                                    failureResponse:nil
                                                              error:nil
                                                             sender:nil];
  NSURLSession* const session = _session;
  const long error = [self ask:^(id<NSURLSessionDataDelegate> delegate, void (^decided)(void)) {
    const auto decide = ^(NSURLSessionAuthChallengeDisposition disposition, NSURLCredential* with) {
      fake::heard.disposition = disposition;
      fake::heard.credential = with != nil;
      decided();
    };
    if ([delegate
            respondsToSelector:@selector(URLSession:task:didReceiveChallenge:completionHandler:)]) {
      [(NSObject*)delegate URLSession:session
                                 task:self
                  didReceiveChallenge:asked
                    completionHandler:decide];
    } else {
      decide(NSURLSessionAuthChallengePerformDefaultHandling, nil);
    }
  }];
  const bool isCancelled =
      fake::heard.disposition == NSURLSessionAuthChallengeCancelAuthenticationChallenge;
  return error == 0 && isCancelled ? NSURLErrorCancelled : error;
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
      (setup.HTTPCookieAcceptPolicy == NSHTTPCookieAcceptPolicyNever ? "" : "accepts-cookies ") +
      (setup.TLSMinimumSupportedProtocolVersion == tls_protocol_version_TLSv12 ? "" : "old TLS ") +
      (setup.requestCachePolicy == NSURLRequestReloadIgnoringLocalAndRemoteCacheData &&
               _request.cachePolicy == setup.requestCachePolicy
           ? ""
           : "cached ") +
      (setup.waitsForConnectivity ? "waits " : "") +
      std::to_string(setup.timeoutIntervalForRequest) + " " +
      std::to_string(setup.timeoutIntervalForResource) + " " +
      std::to_string(_request.timeoutInterval);
  if (server.whenAsked) {
    server.whenAsked();
  }
  const bool answers = !server.hangs;
  long error = [self waitUntil:&answers];
  if (error == 0) {
    error = server.error;
  }
  if (error == 0 && !server.challenge.empty()) {
    error = [self challenge:toMac(server.challenge)];
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
    const bool isOver = true;
    long last = error != 0 ? error : [self waitUntil:&isOver];
    last = last == 0 ? server.errorAfter : last;
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

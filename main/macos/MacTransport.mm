#include "macos/MacTransport.h"

#include <algorithm>
#include <condition_variable>
#include <utility>

#include "base/Secret.h"
#include "base/Time.h"
#include "macos/MacText.h"

#pragma clang diagnostic ignored "-Wunused-parameter"  // delegates are told more than they need

using marigold::HTTPAnswer;

/// Collects the answer to a session's one task, on a thread of the session's, and keeps the session
/// from following redirects and from looking for passwords.
@interface ClaudeRedirectRefusing : NSObject <NSURLSessionDataDelegate>
- (instancetype)initWithLongestBody:(std::size_t)bytes;
/// The whole answer; nothing when there is none in so long.
- (std::optional<HTTPAnswer>)waitFor:(marigold::Seconds)limit;
/// Ends the waiting. From any thread.
- (void)endWhole:(bool)whole;
@end

@implementation ClaudeRedirectRefusing {
  std::size_t _longestBody;
  std::mutex _mutex;  // guards the rest
  std::condition_variable _changed;
  HTTPAnswer _answer;
  bool _ended;
  bool _whole;
}

- (instancetype)initWithLongestBody:(std::size_t)bytes {
  if ((self = [super init])) {
    _longestBody = bytes;
  }
  return self;
}

- (std::optional<HTTPAnswer>)waitFor:(marigold::Seconds)limit {
  std::unique_lock lock(_mutex);
  (void)_changed.wait_for(lock, limit, [self] { return self->_ended; });
  _ended = true;
  return _whole ? std::optional(std::move(_answer)) : std::nullopt;
}

- (void)endWhole:(bool)whole {
  const std::lock_guard lock(_mutex);
  if (!_ended) {
    _ended = true;
    _whole = whole && _answer.status != 0;
    _changed.notify_all();
  }
}

- (void)URLSession:(NSURLSession*)session
                          task:(NSURLSessionTask*)task
    willPerformHTTPRedirection:(NSHTTPURLResponse*)response
                    newRequest:(NSURLRequest*)request
             completionHandler:(void (^)(NSURLRequest*))handler {
  handler(nil);  // the redirect itself is the answer
}

// Whether the server is to be believed is the system's to say. A proxy or server that wants a
// password gets none: the system would look for one in keychains, and ask.
- (void)URLSession:(NSURLSession*)session
                   task:(NSURLSessionTask*)task
    didReceiveChallenge:(NSURLAuthenticationChallenge*)challenge
      completionHandler:(void (^)(NSURLSessionAuthChallengeDisposition, NSURLCredential*))handler {
  const bool isServer = [challenge.protectionSpace.authenticationMethod
      isEqualToString:NSURLAuthenticationMethodServerTrust];
  handler(isServer ? NSURLSessionAuthChallengePerformDefaultHandling
                   : NSURLSessionAuthChallengeUseCredential,
          nil);
}

- (void)URLSession:(NSURLSession*)session
              dataTask:(NSURLSessionDataTask*)task
    didReceiveResponse:(NSURLResponse*)response
     completionHandler:(void (^)(NSURLSessionResponseDisposition))handler {
  const bool isHTTP = [response isKindOfClass:NSHTTPURLResponse.class];
  if (isHTTP) {
    [self take:static_cast<NSHTTPURLResponse*>(response)];
  }
  handler(isHTTP ? NSURLSessionResponseAllow : NSURLSessionResponseCancel);
}
- (void)take:(NSHTTPURLResponse*)response {
  const auto field = [&](NSString* name) {
    NSString* const value = [response valueForHTTPHeaderField:name];
    return value != nil ? std::optional(marigold::fromMac(value)) : std::nullopt;
  };
  const std::lock_guard lock(_mutex);
  _answer.status = static_cast<int>(response.statusCode);
  _answer.retryAfter = field(@"Retry-After");
  _answer.unifiedReset = field(@"anthropic-ratelimit-unified-reset");
  _answer.unifiedFiveHourReset = field(@"anthropic-ratelimit-unified-5h-reset");
}

- (void)URLSession:(NSURLSession*)session
          dataTask:(NSURLSessionDataTask*)task
    didReceiveData:(NSData*)data {
  if (![self takeBody:data]) {
    [self endWhole:true];  // the rest is not fetched: the session ends with the waiting
  }
}
// Whether more is wanted.
- (bool)takeBody:(NSData*)data {
  const std::lock_guard lock(_mutex);
  const std::size_t room = _longestBody - _answer.body.size();
  _answer.bodyIsCut = data.length > room;
  if (!_ended) {
    _answer.body.append(static_cast<const char*>(data.bytes),
                        std::min<std::size_t>(data.length, room));
  }
  return !_answer.bodyIsCut;
}

- (void)URLSession:(NSURLSession*)session
                    task:(NSURLSessionTask*)task
    didCompleteWithError:(NSError*)error {
  [self endWhole:error == nil];
}
@end

namespace marigold {

namespace {

// How much longer than its request's timeout `send` waits. The session watches the time itself.
constexpr Seconds margin{1};

NSURLSessionConfiguration* hardenedConfiguration(Seconds timeout) {
  NSURLSessionConfiguration* const result = NSURLSessionConfiguration.ephemeralSessionConfiguration;
  result.URLCache = nil;
  result.requestCachePolicy = NSURLRequestReloadIgnoringLocalAndRemoteCacheData;
  result.HTTPCookieStorage = nil;
  result.HTTPShouldSetCookies = NO;
  result.HTTPCookieAcceptPolicy = NSHTTPCookieAcceptPolicyNever;
  result.URLCredentialStorage = nil;
  result.TLSMinimumSupportedProtocolVersion = tls_protocol_version_TLSv12;
  result.waitsForConnectivity = NO;
  result.timeoutIntervalForRequest = timeout.count();
  result.timeoutIntervalForResource = timeout.count();
  return result;
}

NSURLRequest* nativeRequest(const HTTPRequest& request) {
  NSURL* const url = [NSURL URLWithString:toMac(request.url)];
  if (![url.scheme isEqualToString:@"https"]) {
    return nil;
  }
  NSMutableURLRequest* const result = [NSMutableURLRequest requestWithURL:url];
  result.HTTPMethod = toMac(request.method);
  result.HTTPShouldHandleCookies = NO;
  result.cachePolicy = NSURLRequestReloadIgnoringLocalAndRemoteCacheData;
  result.timeoutInterval = request.timeout.count();
  [result setValue:[@"Bearer " stringByAppendingString:toMac(request.bearerToken.expose())]
      forHTTPHeaderField:@"Authorization"];
  for (const auto& [name, value] : request.headers) {
    [result setValue:toMac(value) forHTTPHeaderField:toMac(name)];
  }
  return result;
}

}  // namespace

std::optional<HTTPAnswer> MacTransport::send(HTTPRequest request) {
  @autoreleasepool {
    ClaudeRedirectRefusing* const exchange =
        [[ClaudeRedirectRefusing alloc] initWithLongestBody:request.longestBody];
    {
      const std::lock_guard lock(mutex_);
      if (stopped_) {
        return std::nullopt;
      }
      current_ = exchange;
    }
    NSURLRequest* const native = nativeRequest(request);
    request.bearerToken = Secret();
    if (native == nil) {
      return std::nullopt;
    }
    NSURLSession* const session =
        [NSURLSession sessionWithConfiguration:hardenedConfiguration(request.timeout)
                                      delegate:exchange
                                 delegateQueue:nil];
    [[session dataTaskWithRequest:native] resume];
    auto answer = [exchange waitFor:request.timeout + margin];
    [session invalidateAndCancel];  // which also lets go of the delegate
    return answer;
  }
}

void MacTransport::stop() {
  const std::lock_guard lock(mutex_);
  stopped_ = true;
  [current_ endWhole:false];
}

}  // namespace marigold

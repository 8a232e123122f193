// What the declarations of the Mac's interfaces lack of what main/macos/ uses: names, signatures
// and values as their public documentation has them.
#pragma once
#pragma clang system_header
#include_next <Foundation/Foundation.h>

#ifdef __OBJC__
NS_ASSUME_NONNULL_BEGIN

static const NSURLRequestCachePolicy NSURLRequestReloadIgnoringLocalAndRemoteCacheData =
    (NSURLRequestCachePolicy)4;

FOUNDATION_EXPORT NSString* const NSURLAuthenticationMethodServerTrust;
@interface NSURLProtectionSpace : NSObject
- (instancetype)initWithHost:(NSString*)host
                        port:(NSInteger)port
                    protocol:(nullable NSString*)protocol
                       realm:(nullable NSString*)realm
        authenticationMethod:(nullable NSString*)authenticationMethod;
@property(readonly) NSString* authenticationMethod;
@end
@interface NSURLAuthenticationChallenge : NSObject
- (instancetype)initWithProtectionSpace:(NSURLProtectionSpace*)space
                     proposedCredential:(nullable NSURLCredential*)credential
                   previousFailureCount:(NSInteger)count
                        failureResponse:(nullable NSURLResponse*)response
                                  error:(nullable NSError*)error
                                 sender:(nullable id)sender;
@property(readonly) NSURLProtectionSpace* protectionSpace;
@end

@interface NSTimeZone (Default)
+ (void)setDefaultTimeZone:(NSTimeZone*)zone;
@end

@interface NSProcessInfo (Names)
@property(readonly) NSString* processName;
@end

@interface NSUserDefaults (Domains)
- (nullable NSDictionary<NSString*, id>*)persistentDomainForName:(NSString*)domainName;
@end

// Of NSURLSessionTaskDelegate.
@interface NSObject (TaskChallenges)
- (void)URLSession:(NSURLSession*)session
                   task:(NSURLSessionTask*)task
    didReceiveChallenge:(NSURLAuthenticationChallenge*)challenge
      completionHandler:(void (^)(NSURLSessionAuthChallengeDisposition disposition,
                                  NSURLCredential* _Nullable credential))handler;
@end

NS_ASSUME_NONNULL_END
#endif

#pragma once

#include <functional>

#import <Foundation/Foundation.h>

/// Carries an action to a function. Controls and menu items do not keep their targets.
@interface MGAction : NSObject
@property(nonatomic) std::function<void()> work;
- (instancetype)initWithWork:(std::function<void()>)work;
- (void)perform:(id)sender;
@end

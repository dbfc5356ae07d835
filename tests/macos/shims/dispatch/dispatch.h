// The part of libdispatch (Grand Central Dispatch) the adapters use, as the
// macOS 14 SDK declares it for Objective-C with ARC: queues are objects.
// From Apple's Dispatch reference. Declarations only.
#ifndef ZEV_SHIM_DISPATCH_H_
#define ZEV_SHIM_DISPATCH_H_

#import <Foundation/NSObject.h>

@protocol OS_dispatch_queue <NSObject>
@end
typedef NSObject<OS_dispatch_queue>* dispatch_queue_t;
typedef void (^dispatch_block_t)(void);

extern "C" {
dispatch_queue_t dispatch_get_main_queue(void);
void dispatch_async(dispatch_queue_t queue, dispatch_block_t block);
}

#endif  // ZEV_SHIM_DISPATCH_H_

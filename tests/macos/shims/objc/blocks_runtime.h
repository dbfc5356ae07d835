// The blocks runtime entry points (the Blocks ABI clang documents; libobjc2
// 2.x and Apple's libclosure both export them), which GNUstep's headers
// include when the compiler has blocks.
#ifndef ZEV_SHIM_OBJC_BLOCKS_RUNTIME_H_
#define ZEV_SHIM_OBJC_BLOCKS_RUNTIME_H_

#ifdef __cplusplus
extern "C" {
#endif
void* _Block_copy(const void* block);
void _Block_release(const void* block);
#ifdef __cplusplus
}
#endif

#endif  // ZEV_SHIM_OBJC_BLOCKS_RUNTIME_H_

/// Reference-counted memory with attached blocks.
///
/// xir_allocate makes a main block with count 1; blocks attached to it live as long as it does. Blocks are zero-filled
/// and aligned for any type. Counting is safe from any thread; attaching is not: the one who made the block attaches
/// before it shares the block.
#ifndef XIR_MEMORY_H
#define XIR_MEMORY_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Stores a new block of size bytes, count 1, in *pointer. Answers 0; -1 without memory, then *pointer is null.
int32_t xir_allocate(void** pointer, size_t size);
/// A block of size bytes that is freed together with the given main block; null without memory.
void* xir_allocate_and_attach(void* block, size_t size);
/// Counts one up. Answers the new count; null is ignored and answers 0.
int32_t xir_retain(void* block);
/// Counts one down; the last release frees the block and what is attached. Answers the new count; null answers 0.
int32_t xir_release(void* block);

#ifdef __cplusplus
}
#endif

#endif

// Whether a sanitizer watches the heap. It sees each block by itself only when each comes from the heap by itself.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#define KORVANE_PLAIN_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(memory_sanitizer)
#define KORVANE_PLAIN_HEAP 1
#endif
#endif

#include "platform/Signals.h"

namespace platform {

struct BlockBrokenPipe::State {};

BlockBrokenPipe::BlockBrokenPipe() = default;
BlockBrokenPipe::~BlockBrokenPipe() = default;

}  // namespace platform

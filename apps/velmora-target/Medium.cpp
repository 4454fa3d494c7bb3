#include "apps/velmora-target/Medium.h"

#include <unistd.h>

#include <cerrno>

namespace velmora_target {

bool writeThrough(std::FILE* file) {
    if (std::fflush(file) != 0) return false;
    return fsync(fileno(file)) == 0 || errno == EINVAL || errno == EROFS;
}

}  // namespace velmora_target

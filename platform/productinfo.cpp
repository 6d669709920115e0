#include "productinfo.h"

#include <cstdio>
#include <cstdlib>

namespace Version {

// The stand-in takes the camera model from a file, so that a sandbox or a test can play any camera.
// A missing file or one without a number leaves the record as the caller prepared it.
int productInfo(kroProductInfo *info)
{
    FILE *file = std::fopen("/run/product-info/camera-model", "r");
    if (!file)
        return -1;
    char text[32] = {};
    const bool read = std::fgets(text, sizeof text, file) != nullptr;
    std::fclose(file);
    if (!read)
        return -1;

    char *end = nullptr;
    const unsigned long model = std::strtoul(text, &end, 10);
    while (*end == '\n' || *end == '\r' || *end == ' ')
        ++end;
    if (end == text || *end != '\0' || text[0] == '-' || model > 0xFFFFFFFFul)
        return -1;
    info->cameraModel = static_cast<uint32_t>(model);
    return 0;
}

} // namespace Version

#ifndef PRODUCTINFO_H
#define PRODUCTINFO_H

#include <cstdint>

// Stand-in for the camera's closed product-information library: the same record layout as far as this
// tool uses it, and the same call.
namespace Version {

struct kroProductInfo
{
    uint32_t reserved;    // owned by the platform library; not read by this tool
    uint32_t cameraModel; // 12 and 14 are the known camera models
};

// Fills `info` with what the platform knows about this camera. Returns 0 when it did.
int productInfo(kroProductInfo *info);

} // namespace Version

#endif // PRODUCTINFO_H

#pragma once

// What a video mode becomes in a DirectFB screen encoder's configuration. The player's DirectFB carries
// 64-bit resolutions and fields for colour space, depth, range and blanking that the upstream DirectFB
// does not know.

#include <directfb.h>

#include "lib/kestrel_dfb/video_mode_record.h"

/// Copies a mode into an encoder configuration and marks the copied fields in its flags; everything else
/// in the configuration stays. Against an upstream DirectFB only the fields that it has are written, and
/// a resolution that it has no value for is left as it is, with its flag clear. Any thread.
/// @param mode the mode
/// @param configuration the configuration read from the encoder, changed in place
void CopyModeToEncoderConfiguration(const VideoModeRecord& mode, DFBScreenEncoderConfig& configuration);

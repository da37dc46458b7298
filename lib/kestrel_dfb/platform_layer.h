#pragma once

// The set-top platform layer under the player's DirectFB, which has to be initialised before DirectFB
// itself. An upstream DirectFB has no such layer: against one, this header declares the same two entry
// points and platform_layer.cpp supplies versions that do nothing, so that the program starts the same
// way everywhere.

#ifdef PADTUNE_HAVE_DFB_PLATFORM_LAYER

#include <dfb_platform_p.h>

#else

#include <directfb.h>

extern "C" {

/// Settings of the platform layer. Without a layer there is nothing to set.
struct DFB_Platform_P_Settings {
    int reserved;  ///< keeps the record from being empty
};

/// Fills a settings record with the layer's defaults. Main thread only.
/// @param settings the record to fill
void DFB_Platform_P_GetDefaultSettings(DFB_Platform_P_Settings* settings);

/// Starts the layer. Main thread only, once, before DirectFBInit.
/// @param settings a filled record
/// @param context not used by this program: null
/// @return DFB_OK; there is nothing that could fail
DFBResult DFB_Platform_P_Init(DFB_Platform_P_Settings* settings, void* context);
}

#endif

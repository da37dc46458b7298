#include "lib/kestrel_dfb/platform_layer.h"

#ifndef PADTUNE_HAVE_DFB_PLATFORM_LAYER

void DFB_Platform_P_GetDefaultSettings(DFB_Platform_P_Settings* settings) {
    *settings = {};
}

DFBResult DFB_Platform_P_Init(DFB_Platform_P_Settings*, void*) {
    return DFB_OK;
}

#endif

// qorimg: the image-processing engine for astronomical frames.
// Include this one header to use the library: images (CLmrImage) on a store made
// by CreateWholePlaneManager() or CreateBlockManager(), the operators, and the
// display bitmaps that show them.
#pragma once
#include "core/ImgCalculation.h"
#include "core/LmrImage.h"
#include "display/BaseDIB.h"
#include "display/BmpFile.h"
#include "display/MemoryDIB.h"
#include "display/VmDIB.h"
#include "platform/DeviceContext.h"
#include "platform/Diagnostics.h"
#include "platform/GlobalMemory.h"
#include "platform/Messages.h"
#include "sibling/Progress.h"
#include "sibling/QorSys.h"
#include "sibling/Registry.h"
#include "sibling/VmManager.h"

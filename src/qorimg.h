// qorimg: the image-processing engine for astronomical frames.
// Include this one header to use the library: images (CLmrImage) on a store made
// by CreateWholePlaneManager() or CreateBlockManager(), the operators, the
// display bitmaps that show them, and the exceptions the calls may throw.
#pragma once
#include "core/ImgCalculation.h"
#include "core/LmrImage.h"
#include "display/BaseDIB.h"
#include "display/BmpFile.h"
#include "display/MemoryDIB.h"
#include "display/UniqueDib.h"
#include "display/VmDIB.h"
#include "filter/FilterMatrix.h"
#include "filter/FilterProc.h"
#include "filter/ImgFilter.h"
#include "filter/ImgFilterBlur.h"
#include "filter/ImgFilterSpecial.h"
#include "platform/DeviceContext.h"
#include "platform/Diagnostics.h"
#include "platform/Exceptions.h"
#include "platform/GlobalMemory.h"
#include "platform/Messages.h"
#include "platform/StringResources.h"
#include "restore/Fft.h"
#include "restore/ImgFourier.h"
#include "restore/ImgWavelet.h"
#include "sibling/Exceptions.h"
#include "sibling/Progress.h"
#include "sibling/VmManager.h"

// Camera metadata that came with a frame.
#pragma once
#include <cstdint>
#include "Export.h"
#include "platform/String.h"

class QORIMG_API CHeader {
public:
  std::uint16_t GetISO() const { return ISO; }
  void SetISO(std::uint16_t iso) { ISO = iso; }
  const wchar_t *GetLightSource() const { return LightSource; }
  const wchar_t *GetCameraMaker() const { return CameraMaker; }
  const wchar_t *GetCameraModel() const { return CameraModel; }
  void SetLightSource(const CString &s) { LightSource = s; }
  void SetCameraMaker(const CString &s) { CameraMaker = s; }
  void SetCameraModel(const CString &s) { CameraModel = s; }
  int GetWBShootingGain() const { return WBShootingGain; }
  void SetWBShootingGain(int flag) { WBShootingGain = flag; }
  double GetWBShootingGainBayer(int i) const { return WBShootingGainBayer[i & 3]; }
  void GetWBShootingGainBayer(double *out) const { for (int i = 0; i < 4; ++i) out[i] = WBShootingGainBayer[i]; }
  void SetWBShootingGainBayer(int i, double g) { WBShootingGainBayer[i & 3] = g; }
  double GetWBShootingGainHoneyComb(int i) const { return WBShootingGainHoneyComb[i & 7]; }
  void GetWBShootingGainHoneyComb(double *out) const { for (int i = 0; i < 8; ++i) out[i] = WBShootingGainHoneyComb[i]; }
  void SetWBShootingGainHoneyComb(int i, double g) { WBShootingGainHoneyComb[i & 7] = g; }
  int GetCFAPattern() const { return CFAPattern; }
  void SetCFAPattern(int pattern) { CFAPattern = pattern; }

private:
  std::uint16_t ISO = 0;
  CString LightSource;
  CString CameraMaker;
  CString CameraModel;
  std::int32_t WBShootingGain = 0;
  double WBShootingGainBayer[4] = {1.0, 1.0, 1.0, 1.0};
  double WBShootingGainHoneyComb[8] = {1.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0};
  std::int32_t CFAPattern = 0;
};

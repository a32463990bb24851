// The audio engine's public interfaces as far as a capture effect needs them, declared by hand:
// MinGW-w64 has no audioenginebaseapo.h, audiomediatype.h or BaseAudioProcessingObject.h.
//
// Slot order, sizes, offsets and ids are the platform's; the asserts below hold them. No virtual
// destructors here: they would take a slot.
#pragma once

#include <windows.h>

#include <audioapotypes.h>
#include <mmdeviceapi.h>
#include <mmreg.h>
#include <objbase.h>
#include <propsys.h>
#include <unknwn.h>

#include <cstddef>

namespace vellumic::apo_error {
// APOERR_ codes, facility 0x87D.
inline constexpr HRESULT alreadyInitialized = static_cast<HRESULT>(0x887D0001);
inline constexpr HRESULT notInitialized = static_cast<HRESULT>(0x887D0002);
inline constexpr HRESULT formatNotSupported = static_cast<HRESULT>(0x887D0003);
inline constexpr HRESULT alreadyUnlocked = static_cast<HRESULT>(0x887D0006);
inline constexpr HRESULT invalidConnectionFormat = static_cast<HRESULT>(0x887D0009);
inline constexpr HRESULT locked = static_cast<HRESULT>(0x887D000A);
}  // namespace vellumic::apo_error

namespace vellumic {
// KSDATAFORMAT_SUBTYPE_IEEE_FLOAT: the samples are floats.
inline constexpr GUID ieeeFloat{
    0x00000003, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
}  // namespace vellumic

enum APO_CONNECTION_BUFFER_TYPE {
  APO_CONNECTION_BUFFER_TYPE_ALLOCATED = 0,
  APO_CONNECTION_BUFFER_TYPE_EXTERNAL = 1,
  APO_CONNECTION_BUFFER_TYPE_DEPENDANT = 2
};

enum APO_FLAG : UINT32 {
  APO_FLAG_NONE = 0,
  APO_FLAG_INPLACE = 1,
  APO_FLAG_SAMPLESPERFRAME_MUST_MATCH = 2,
  APO_FLAG_FRAMESPERSECOND_MUST_MATCH = 4,
  APO_FLAG_BITSPERSAMPLE_MUST_MATCH = 8
};

struct UNCOMPRESSEDAUDIOFORMAT {
  GUID guidFormatType;
  DWORD dwSamplesPerFrame;
  DWORD dwBytesPerSampleContainer;
  DWORD dwValidBitsPerSample;
  FLOAT fFramesPerSecond;
  DWORD dwChannelMask;
};
static_assert(sizeof(UNCOMPRESSEDAUDIOFORMAT) == 36);

struct IAudioMediaType : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE IsCompressedFormat(BOOL* compressed) = 0;
  virtual HRESULT STDMETHODCALLTYPE IsEqual(IAudioMediaType* other, DWORD* flags) = 0;
  virtual const WAVEFORMATEX* STDMETHODCALLTYPE GetAudioFormat() = 0;  // owned by the object
  virtual HRESULT STDMETHODCALLTYPE GetUncompressedAudioFormat(UNCOMPRESSEDAUDIOFORMAT* format) = 0;
};
__CRT_UUID_DECL(IAudioMediaType, 0x4E997F73, 0xB71F, 0x4798, 0x87, 0x3B, 0xED, 0x7D, 0xFC, 0xF1,
                0x5B, 0x4D)

struct APO_CONNECTION_DESCRIPTOR {
  APO_CONNECTION_BUFFER_TYPE Type;
  UINT_PTR pBuffer;
  UINT32 u32MaxFrameCount;
  IAudioMediaType* pFormat;
  UINT32 u32Signature;
};
static_assert(sizeof(APO_CONNECTION_DESCRIPTOR) == 40 &&
              offsetof(APO_CONNECTION_DESCRIPTOR, pFormat) == 24);
static_assert(sizeof(APO_CONNECTION_PROPERTY) == 24 &&
              offsetof(APO_CONNECTION_PROPERTY, u32BufferFlags) == 12);

struct APO_REG_PROPERTIES {
  CLSID clsid;
  UINT32 Flags;
  WCHAR szFriendlyName[256];
  WCHAR szCopyrightInfo[256];
  UINT32 u32MajorVersion;
  UINT32 u32MinorVersion;
  UINT32 u32MinInputConnections;
  UINT32 u32MaxInputConnections;
  UINT32 u32MinOutputConnections;
  UINT32 u32MaxOutputConnections;
  UINT32 u32MaxInstances;
  UINT32 u32NumAPOInterfaces;
  IID iidAPOInterfaceList[1];
};
static_assert(sizeof(APO_REG_PROPERTIES) == 0x444 &&
              offsetof(APO_REG_PROPERTIES, szCopyrightInfo) == 532 &&
              offsetof(APO_REG_PROPERTIES, u32MajorVersion) == 1044 &&
              offsetof(APO_REG_PROPERTIES, iidAPOInterfaceList) == 1076);

struct APOInitBaseStruct {
  UINT32 cbSize;
  CLSID clsid;
};
struct APOInitSystemEffects {
  APOInitBaseStruct APOInit;
  IPropertyStore* pAPOEndpointProperties;
  IPropertyStore* pAPOSystemEffectsProperties;
  void* pReserved;
  IMMDeviceCollection* pDeviceCollection;
};
struct APOInitSystemEffects2 {
  APOInitBaseStruct APOInit;
  IPropertyStore* pAPOEndpointProperties;
  IPropertyStore* pAPOSystemEffectsProperties;
  void* pReserved;
  IMMDeviceCollection* pDeviceCollection;
  UINT nSoftwareIoDeviceInCollection;
  UINT nSoftwareIoConnectorIndex;
  GUID AudioProcessingMode;
  BOOL InitializeForDiscoveryOnly;
};
static_assert(sizeof(APOInitBaseStruct) == 20);
static_assert(sizeof(APOInitSystemEffects) == 56 &&
              offsetof(APOInitSystemEffects, pDeviceCollection) == 48);
static_assert(sizeof(APOInitSystemEffects2) == 88 &&
              offsetof(APOInitSystemEffects2, nSoftwareIoDeviceInCollection) == 56 &&
              offsetof(APOInitSystemEffects2, AudioProcessingMode) == 64);

struct IAudioProcessingObject : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
  virtual HRESULT STDMETHODCALLTYPE GetLatency(LONGLONG* hundredNanoseconds) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetRegistrationProperties(APO_REG_PROPERTIES** properties) = 0;
  virtual HRESULT STDMETHODCALLTYPE Initialize(UINT32 dataSize, BYTE* data) = 0;
  virtual HRESULT STDMETHODCALLTYPE IsInputFormatSupported(IAudioMediaType* opposite,
                                                           IAudioMediaType* requested,
                                                           IAudioMediaType** supported) = 0;
  virtual HRESULT STDMETHODCALLTYPE IsOutputFormatSupported(IAudioMediaType* opposite,
                                                            IAudioMediaType* requested,
                                                            IAudioMediaType** supported) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetInputChannelCount(UINT32* count) = 0;
};
__CRT_UUID_DECL(IAudioProcessingObject, 0xFD7F2B29, 0x24D0, 0x4B5C, 0xB1, 0x77, 0x59, 0x2C, 0x39,
                0xF9, 0xCA, 0x10)

struct IAudioProcessingObjectRT : IUnknown {
  virtual void STDMETHODCALLTYPE APOProcess(UINT32 inputCount, APO_CONNECTION_PROPERTY** inputs,
                                            UINT32 outputCount,
                                            APO_CONNECTION_PROPERTY** outputs) = 0;
  virtual UINT32 STDMETHODCALLTYPE CalcInputFrames(UINT32 outputFrames) = 0;
  virtual UINT32 STDMETHODCALLTYPE CalcOutputFrames(UINT32 inputFrames) = 0;
};
__CRT_UUID_DECL(IAudioProcessingObjectRT, 0x9E1D6A6D, 0xDDBC, 0x4E95, 0xA4, 0xC7, 0xAD, 0x64, 0xBA,
                0x37, 0x84, 0x6C)

struct IAudioProcessingObjectConfiguration : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE LockForProcess(UINT32 inputCount,
                                                   APO_CONNECTION_DESCRIPTOR** inputs,
                                                   UINT32 outputCount,
                                                   APO_CONNECTION_DESCRIPTOR** outputs) = 0;
  virtual HRESULT STDMETHODCALLTYPE UnlockForProcess() = 0;
};
__CRT_UUID_DECL(IAudioProcessingObjectConfiguration, 0x0E5ED805, 0xABA6, 0x49C3, 0x8F, 0x9A, 0x2B,
                0x8C, 0x88, 0x9C, 0x4F, 0xA8)

struct IAudioSystemEffects : IUnknown {};
__CRT_UUID_DECL(IAudioSystemEffects, 0x5FA00F27, 0xADD6, 0x499A, 0x8A, 0x9D, 0x6B, 0x98, 0x52, 0x1F,
                0xA7, 0x5B)

struct IAudioSystemEffects2 : IAudioSystemEffects {
  // ids: allocated by CoTaskMemAlloc. event: signalled when the list changes; may be null.
  virtual HRESULT STDMETHODCALLTYPE GetEffectsList(GUID** ids, UINT* count, HANDLE event) = 0;
};
__CRT_UUID_DECL(IAudioSystemEffects2, 0xBAFE99D2, 0x7436, 0x44CE, 0x9E, 0x0E, 0x4D, 0x89, 0xAF,
                0xBF, 0xFF, 0x56)

struct IAudioSystemEffectsCustomFormats : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetFormatCount(UINT* count) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetFormat(UINT index, IAudioMediaType** format) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetFormatRepresentation(UINT index, LPWSTR* text) = 0;
};
__CRT_UUID_DECL(IAudioSystemEffectsCustomFormats, 0xB1176E34, 0xBB7F, 0x4F05, 0xBE, 0xBD, 0x1B,
                0x18, 0xA5, 0x34, 0xE0, 0x97)

// Stands in for the two libraries of a CUDA driver, libcuda.so.1 and libnvcuvid.so.1, so that the
// road of hardware decoding runs on a machine without a device: libav loads both by name, so a
// folder with these names in LD_LIBRARY_PATH is all it takes. "Device memory" is ordinary memory
// and every decoded picture is flat. What it proves is the calling code, not what a device decodes.
//
// The environment variable FRAMEWELL_STAND_IN_FAIL names the step that fails: "init" (there is no
// device), "create" (a decoder cannot be made), "decode" or "map" (the device is lost meanwhile).
//
// Only what libav reads or writes is declared here; the layouts are the driver's 64-bit ABI.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int kSuccess = 0;
constexpr int kInvalidValue = 1;
constexpr int kOutOfMemory = 2;
constexpr int kNoDevice = 100;
constexpr int kNotSupported = 801;
constexpr int kUnknown = 999;

constexpr int kChroma420 = 1;
constexpr int kHostMemory = 1;
constexpr unsigned kPitchStep = 256;
constexpr int kLuma = 81;  // what tests look for in a picture
constexpr int kChroma = 90;

using DevicePointer = unsigned long long;

struct Context {
    int unused;
};

struct Decoder {
    unsigned long width;
    unsigned long height;
};

struct Copy2D {
    std::size_t from_x, from_y;
    int from_type;
    const void* from_host;
    DevicePointer from_device;
    void* from_array;
    std::size_t from_pitch;
    std::size_t to_x, to_y;
    int to_type;
    void* to_host;
    DevicePointer to_device;
    void* to_array;
    std::size_t to_pitch;
    std::size_t width_bytes, height;
};

struct DecoderCaps {
    int codec, chroma_format;
    unsigned bit_depth_minus_8, reserved1[3];
    unsigned char is_supported, nb_engines;
    unsigned short output_format_mask;
    unsigned max_width, max_height, max_macroblocks;
    unsigned short min_width, min_height;
};

struct DecoderCreateInfo {
    unsigned long width, height, nb_decode_surfaces;
    int codec, chroma_format;
    unsigned long creation_flags, bit_depth_minus_8, intra_only, max_width, max_height, reserved1;
    short display_area[4];
    int output_format, deinterlace_mode;
    unsigned long target_width, target_height;
};

static_assert(offsetof(Copy2D, height) == 120 && offsetof(DecoderCaps, min_width) == 40 &&
                  offsetof(DecoderCreateInfo, target_height) == 104,
              "the layouts of the driver's interface on 64-bit systems");

bool is_failing(const char* step) {
    const char* const failing = std::getenv("FRAMEWELL_STAND_IN_FAIL");
    return failing != nullptr && std::strcmp(failing, step) == 0;
}

unsigned char* to_address(DevicePointer pointer) {
    return reinterpret_cast<unsigned char*>(static_cast<std::uintptr_t>(pointer));
}

DevicePointer to_device(void* address) {
    return static_cast<DevicePointer>(reinterpret_cast<std::uintptr_t>(address));
}

int allocate(DevicePointer* pointer, std::size_t size) {
    void* const memory = std::malloc(size);
    *pointer = to_device(memory);
    return memory != nullptr ? kSuccess : kOutOfMemory;
}

}  // namespace

// libav finds these by name, also where everything is hidden unless stated otherwise.
#pragma GCC visibility push(default)
extern "C" {

// The driver.

int cuInit(unsigned) {
    return is_failing("init") ? kNoDevice : kSuccess;
}

int cuDriverGetVersion(int* version) {
    *version = 12000;
    return kSuccess;
}

int cuDeviceGetCount(int* count) {
    *count = 1;
    return kSuccess;
}

int cuDeviceGet(int* device, int index) {
    *device = index;
    return index == 0 ? kSuccess : kInvalidValue;
}

int cuDeviceGetAttribute(int* value, int, int) {
    *value = static_cast<int>(kPitchStep);  // libav asks for the alignment of textures only
    return kSuccess;
}

int cuGetErrorName(int, const char** text) {
    *text = "STAND_IN_ERROR";
    return kSuccess;
}

int cuGetErrorString(int, const char** text) {
    *text = "injected failure of the stand-in driver";
    return kSuccess;
}

int cuCtxCreate_v2(Context** context, unsigned, int) {
    *context = static_cast<Context*>(std::calloc(1, sizeof(Context)));
    return *context != nullptr ? kSuccess : kOutOfMemory;
}

int cuCtxDestroy_v2(Context* context) {
    std::free(context);
    return kSuccess;
}

int cuCtxPushCurrent_v2(Context* context) {
    return context != nullptr ? kSuccess : kInvalidValue;
}

int cuCtxPopCurrent_v2(Context** context) {
    *context = nullptr;
    return kSuccess;
}

int cuMemAlloc_v2(DevicePointer* pointer, std::size_t size) {
    return allocate(pointer, size);
}

int cuMemFree_v2(DevicePointer pointer) {
    std::free(to_address(pointer));
    return kSuccess;
}

int cuMemcpy2DAsync_v2(const Copy2D* copy, void*) {
    const auto* const from = copy->from_type == kHostMemory
                                 ? static_cast<const unsigned char*>(copy->from_host)
                                 : to_address(copy->from_device);
    auto* const to = copy->to_type == kHostMemory ? static_cast<unsigned char*>(copy->to_host)
                                                  : to_address(copy->to_device);
    for (std::size_t row = 0; row < copy->height; ++row) {
        std::memcpy(to + (copy->to_y + row) * copy->to_pitch + copy->to_x,
                    from + (copy->from_y + row) * copy->from_pitch + copy->from_x,
                    copy->width_bytes);
    }
    return kSuccess;
}

int cuMemcpy2D_v2(const Copy2D* copy) {
    return cuMemcpy2DAsync_v2(copy, nullptr);
}

int cuStreamSynchronize(void*) {
    return kSuccess;
}

// The decoder.

int cuvidGetDecoderCaps(DecoderCaps* caps) {
    caps->is_supported = caps->chroma_format == kChroma420 && caps->bit_depth_minus_8 == 0;
    caps->nb_engines = 1;
    caps->output_format_mask = 1;  // NV12
    caps->max_width = 8192;
    caps->max_height = 8192;
    caps->max_macroblocks = 8192 * 8192 / 256;
    caps->min_width = 16;
    caps->min_height = 16;
    return kSuccess;
}

int cuvidCreateDecoder(Decoder** decoder, const DecoderCreateInfo* info) {
    if (is_failing("create")) {
        return kNotSupported;
    }
    *decoder = static_cast<Decoder*>(std::calloc(1, sizeof(Decoder)));
    if (*decoder == nullptr) {
        return kOutOfMemory;
    }
    (*decoder)->width = info->target_width;
    (*decoder)->height = info->target_height;
    return kSuccess;
}

int cuvidDestroyDecoder(Decoder* decoder) {
    std::free(decoder);
    return kSuccess;
}

int cuvidDecodePicture(Decoder*, void*) {
    return is_failing("decode") ? kUnknown : kSuccess;
}

int cuvidMapVideoFrame64(const Decoder* decoder, int, DevicePointer* picture, unsigned* pitch,
                         void*) {
    if (is_failing("map")) {
        return kUnknown;
    }
    *pitch = (static_cast<unsigned>(decoder->width) + kPitchStep - 1) / kPitchStep * kPitchStep;
    const std::size_t luma_size = std::size_t{*pitch} * decoder->height;
    const int r = allocate(picture, luma_size + luma_size / 2);
    if (r == kSuccess) {
        std::memset(to_address(*picture), kLuma, luma_size);
        std::memset(to_address(*picture) + luma_size, kChroma, luma_size / 2);
    }
    return r;
}

int cuvidUnmapVideoFrame64(Decoder*, DevicePointer picture) {
    return cuMemFree_v2(picture);
}

// libav looks for the whole interface before it uses any of it.

#define FW_NOT_SUPPORTED(name) \
    int name() {               \
        return kNotSupported;  \
    }

FW_NOT_SUPPORTED(cuDeviceGetName)
FW_NOT_SUPPORTED(cuDeviceComputeCapability)
FW_NOT_SUPPORTED(cuDeviceGetUuid)
FW_NOT_SUPPORTED(cuDevicePrimaryCtxRetain)
FW_NOT_SUPPORTED(cuDevicePrimaryCtxRelease)
FW_NOT_SUPPORTED(cuDevicePrimaryCtxSetFlags)
FW_NOT_SUPPORTED(cuDevicePrimaryCtxGetState)
FW_NOT_SUPPORTED(cuDevicePrimaryCtxReset)
FW_NOT_SUPPORTED(cuCtxGetCurrent)
FW_NOT_SUPPORTED(cuCtxSetCurrent)
FW_NOT_SUPPORTED(cuCtxGetDevice)
FW_NOT_SUPPORTED(cuCtxSetLimit)
FW_NOT_SUPPORTED(cuMemAllocPitch_v2)
FW_NOT_SUPPORTED(cuMemAllocManaged)
FW_NOT_SUPPORTED(cuMemsetD8Async)
FW_NOT_SUPPORTED(cuMemcpy)
FW_NOT_SUPPORTED(cuMemcpyAsync)
FW_NOT_SUPPORTED(cuMemcpyHtoD_v2)
FW_NOT_SUPPORTED(cuMemcpyHtoDAsync_v2)
FW_NOT_SUPPORTED(cuMemcpyDtoH_v2)
FW_NOT_SUPPORTED(cuMemcpyDtoHAsync_v2)
FW_NOT_SUPPORTED(cuMemcpyDtoD_v2)
FW_NOT_SUPPORTED(cuMemcpyDtoDAsync_v2)
FW_NOT_SUPPORTED(cuStreamCreate)
FW_NOT_SUPPORTED(cuStreamQuery)
FW_NOT_SUPPORTED(cuStreamDestroy_v2)
FW_NOT_SUPPORTED(cuStreamAddCallback)
FW_NOT_SUPPORTED(cuStreamWaitEvent)
FW_NOT_SUPPORTED(cuEventCreate)
FW_NOT_SUPPORTED(cuEventDestroy_v2)
FW_NOT_SUPPORTED(cuEventSynchronize)
FW_NOT_SUPPORTED(cuEventQuery)
FW_NOT_SUPPORTED(cuEventRecord)
FW_NOT_SUPPORTED(cuLaunchKernel)
FW_NOT_SUPPORTED(cuLinkCreate)
FW_NOT_SUPPORTED(cuLinkAddData)
FW_NOT_SUPPORTED(cuLinkComplete)
FW_NOT_SUPPORTED(cuLinkDestroy)
FW_NOT_SUPPORTED(cuModuleLoadData)
FW_NOT_SUPPORTED(cuModuleUnload)
FW_NOT_SUPPORTED(cuModuleGetFunction)
FW_NOT_SUPPORTED(cuModuleGetGlobal)
FW_NOT_SUPPORTED(cuTexObjectCreate)
FW_NOT_SUPPORTED(cuTexObjectDestroy)
FW_NOT_SUPPORTED(cuGLGetDevices_v2)
FW_NOT_SUPPORTED(cuGraphicsGLRegisterImage)
FW_NOT_SUPPORTED(cuGraphicsUnregisterResource)
FW_NOT_SUPPORTED(cuGraphicsMapResources)
FW_NOT_SUPPORTED(cuGraphicsUnmapResources)
FW_NOT_SUPPORTED(cuGraphicsSubResourceGetMappedArray)
FW_NOT_SUPPORTED(cuGraphicsResourceGetMappedPointer_v2)
FW_NOT_SUPPORTED(cuImportExternalMemory)
FW_NOT_SUPPORTED(cuDestroyExternalMemory)
FW_NOT_SUPPORTED(cuExternalMemoryGetMappedBuffer)
FW_NOT_SUPPORTED(cuExternalMemoryGetMappedMipmappedArray)
FW_NOT_SUPPORTED(cuMipmappedArrayGetLevel)
FW_NOT_SUPPORTED(cuMipmappedArrayDestroy)
FW_NOT_SUPPORTED(cuImportExternalSemaphore)
FW_NOT_SUPPORTED(cuDestroyExternalSemaphore)
FW_NOT_SUPPORTED(cuSignalExternalSemaphoresAsync)
FW_NOT_SUPPORTED(cuWaitExternalSemaphoresAsync)
FW_NOT_SUPPORTED(cuArrayCreate_v2)
FW_NOT_SUPPORTED(cuArray3DCreate_v2)
FW_NOT_SUPPORTED(cuArrayDestroy)
FW_NOT_SUPPORTED(cuEGLStreamProducerConnect)
FW_NOT_SUPPORTED(cuEGLStreamProducerDisconnect)
FW_NOT_SUPPORTED(cuEGLStreamProducerPresentFrame)
FW_NOT_SUPPORTED(cuEGLStreamProducerReturnFrame)
FW_NOT_SUPPORTED(cuEGLStreamConsumerDisconnect)
FW_NOT_SUPPORTED(cuvidGetDecodeStatus)
FW_NOT_SUPPORTED(cuvidReconfigureDecoder)
FW_NOT_SUPPORTED(cuvidCtxLockCreate)
FW_NOT_SUPPORTED(cuvidCtxLockDestroy)
FW_NOT_SUPPORTED(cuvidCtxLock)
FW_NOT_SUPPORTED(cuvidCtxUnlock)
FW_NOT_SUPPORTED(cuvidCreateVideoSource)
FW_NOT_SUPPORTED(cuvidCreateVideoSourceW)
FW_NOT_SUPPORTED(cuvidDestroyVideoSource)
FW_NOT_SUPPORTED(cuvidSetVideoSourceState)
FW_NOT_SUPPORTED(cuvidGetVideoSourceState)
FW_NOT_SUPPORTED(cuvidGetSourceVideoFormat)
FW_NOT_SUPPORTED(cuvidGetSourceAudioFormat)
FW_NOT_SUPPORTED(cuvidCreateVideoParser)
FW_NOT_SUPPORTED(cuvidParseVideoData)
FW_NOT_SUPPORTED(cuvidDestroyVideoParser)

}  // extern "C"
#pragma GCC visibility pop

// Converts with the rendering intent for photographs, "perceptual": colours that sRGB cannot represent shift all others too.
//
// lcms uses some blocks without a look at whether it got them, so it must never see that memory is exhausted: its allocator
// leaves the guarded step instead. What lcms had begun is then freed block by block.
#include "codec/cmyk.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <new>

#include <lcms2.h>
#include <lcms2_plugin.h>

#include "codec/codec.h"
#include "codec/guard.h"

namespace codec {

// A context of lcms with a transform in it, used by one thread at a time.
class CmykToRgb::Engine {
  public:
    Engine() : context_(make_context(this)) {
        if (context_ == nullptr) {
            throw std::bad_alloc();
        }
    }

    ~Engine() {
        if (transform_ != nullptr) {
            cmsDeleteTransform(transform_);
        }
        cmsDeleteContext(context_);
        while (blocks_.next != &blocks_) {
            release(nullptr, blocks_.next + 1);
        }
    }

    Engine(const Engine &) = delete;
    Engine &operator=(const Engine &) = delete;

    // Called once.
    void make_transform(const Bytes &profile, bool inverted) {
        may_leave_ = true;
        trouble_.guarded([&] {
            cmsHPROFILE from = open(profile);
            cmsHPROFILE to = cmsCreate_sRGBProfileTHR(context_);
            transform_ = cmsCreateTransformTHR(context_, from, inverted ? TYPE_CMYK_8_REV : TYPE_CMYK_8, to, TYPE_RGB_8,
                                               INTENT_PERCEPTUAL, 0);
            if (transform_ == nullptr) {
                trouble_.fail(unusable);
            }
            cmsCloseProfile(from);
            cmsCloseProfile(to);
        });
        may_leave_ = false;
    }

    void convert(const uint8_t *inks, uint8_t *pixels, uint32_t count) const {
        cmsDoTransform(transform_, inks, pixels, count);
    }

  private:
    static constexpr const char *unusable = "a CMYK picture whose colour profile cannot be used";

    // What stands before each block of lcms: its neighbours in the list of all.
    struct alignas(std::max_align_t) Block {
        Block *previous = this;
        Block *next = this;
        uint64_t size = 0;
    };

    static cmsContext make_context(Engine *engine) {
        constexpr cmsUInt32Number first_version = 2060; // that has both kinds
        cmsPluginMutex locks{
            {cmsPluginMagicNumber, first_version, cmsPluginMutexSig, nullptr}, make_lock, end_lock, take_lock, leave_lock};
        cmsPluginMemHandler memory{{cmsPluginMagicNumber, first_version, cmsPluginMemHandlerSig, &locks.base},
                                   allocate,
                                   release,
                                   reallocate,
                                   nullptr,
                                   nullptr,
                                   nullptr};
        return cmsCreateContext(&memory, engine);
    }

    // Runs inside a guarded step.
    cmsHPROFILE open(const Bytes &profile) {
        cmsHPROFILE opened = cmsOpenProfileFromMemTHR(context_, profile.data(), static_cast<cmsUInt32Number>(profile.size()));
        if (opened == nullptr || cmsGetColorSpace(opened) != cmsSigCmykData) {
            trouble_.fail(unusable);
        }
        return opened;
    }

    // A context has no engine while it is being made; its first block then stands alone, and goes with it.
    static void *allocate(cmsContext context, cmsUInt32Number size) {
        auto *engine = static_cast<Engine *>(cmsGetContextUserData(context));
        void *const memory = std::malloc(sizeof(Block) + size);
        if (memory == nullptr) {
            if (engine != nullptr && engine->may_leave_) {
                engine->trouble_.note_exhausted_memory();
                engine->trouble_.fail("");
            }
            return nullptr;
        }
        auto *block = new (memory) Block;
        block->size = size;
        if (engine != nullptr) {
            block->previous = &engine->blocks_;
            block->next = engine->blocks_.next;
            block->previous->next = block->next->previous = block;
        }
        return block + 1;
    }

    static void release(cmsContext, void *memory) {
        if (memory != nullptr) {
            Block *block = static_cast<Block *>(memory) - 1;
            block->previous->next = block->next;
            block->next->previous = block->previous;
            std::free(block);
        }
    }

    static void *reallocate(cmsContext context, void *memory, cmsUInt32Number size) {
        void *const moved = allocate(context, size);
        if (moved != nullptr && memory != nullptr) {
            const uint64_t before = (static_cast<Block *>(memory) - 1)->size;
            std::copy_n(static_cast<uint8_t *>(memory), std::min<uint64_t>(before, size), static_cast<uint8_t *>(moved));
            release(context, memory);
        }
        return moved;
    }

    // No thread waits for another: one lock without a function does for all.
    static void *make_lock(cmsContext) {
        static char lock;
        return &lock;
    }
    static void end_lock(cmsContext, void *) {}
    static cmsBool take_lock(cmsContext, void *) { return TRUE; }
    static void leave_lock(cmsContext, void *) {}

    Block blocks_; // the list's end
    bool may_leave_ = false;
    Trouble trouble_;
    cmsContext context_; // behind what its making uses
    cmsHTRANSFORM transform_ = nullptr;
};

CmykToRgb::CmykToRgb(const Bytes &profile, bool inverted) {
    if (profile.empty()) {
        throw Error("a CMYK picture without a colour profile");
    }
    engine_ = std::make_unique<Engine>();
    engine_->make_transform(profile, inverted);
}

CmykToRgb::~CmykToRgb() = default;

void CmykToRgb::convert(const uint8_t *inks, uint8_t *pixels, uint32_t count) const { engine_->convert(inks, pixels, count); }

void describe_as_srgb(Metadata &metadata) {
    metadata.icc_profile.clear();
    metadata.png_colours = {};
    metadata.png_colours.srgb_intent = INTENT_PERCEPTUAL;
}

} // namespace codec

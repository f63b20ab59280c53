// Feeds arbitrary bytes to the OBJ reader and to the MTL reader, and checks
// that what they make holds together.

#include <cstddef>
#include <cstdint>

#include "modelio/KvoObjReader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const char* text = reinterpret_cast<const char*>(data);
    {
        // Names of other files resolve into a folder that does not exist.
        kvo::QvObjModel model;
        kvo::readObjBuffer(model, text, size, "/nonexistent-quovara-fuzz/");
        for (const kvo::QvObjGroup& g : model.groups) {
            if (g.triangles.empty())
                __builtin_trap();
            for (unsigned t : g.triangles)
                if (t >= model.triangles.size())
                    __builtin_trap();
        }
        size_t grouped = 0;
        for (const kvo::QvObjGroup& g : model.groups)
            grouped += g.triangles.size();
        if (grouped != model.triangles.size())
            __builtin_trap();
    }
    {
        kvo::QvObjModel model;
        kvo::readMtlBuffer(model, text, size);
        if (model.materials.empty() || model.materials[0].name != "default")
            __builtin_trap();
    }
    return 0;
}

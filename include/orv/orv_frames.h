// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Whole chains of inlined calls, for one address or for many.
///
///     unsigned long long const addresses[] = {0x1040, 0x1010};
///     SymMgrObjectPtr<IFrames> frames;
///     if (framesByAddresses(frames, *bank, addresses, 2, frames_Everything) == status_Ok)
///         for (Frame const* frame = frames->at(0); frame != nullptr; frame = frame->caller)
///             if (frame->function != nullptr && frame->file != nullptr)
///                 std::printf("%s at %s:%u\n", frame->demangled, frame->file, frame->line);
#pragma once

#include "orv/orv_modulesymbolbank.h"

#include <cstddef>

namespace ORV_3_30 {

/// One function of a chain: an inlined body, or at the end the function that the code was compiled into. Addresses are
/// pseudo addresses. Texts live as long as the bank.
struct Frame {
    Frame const* caller = nullptr;   ///< What this one is inlined into; null for the last.
    char const* function = nullptr;  ///< The raw name; null where no function is known.
    char const* demangled = nullptr; ///< The full signature; the raw name where it can't be demangled.
    char const* shortName = nullptr; ///< Without parameters and return type.
    char const* file = nullptr;      ///< The path; null where no line is known, and for a source without a file.
    unsigned int line = 0;           ///< Of the address; in a caller, of the call. 0: code of no line, or none known.
    unsigned int column = 0;         ///< 0 where it is not told.
    unsigned long long discriminator = 0; ///< 0 where it is not told.
    /// Of the range of the function or body that holds the address; in a caller, that holds the start of what is
    /// inlined into it, or its entry without extent where debug information has that outside.
    unsigned long long start = 0;
    unsigned long long end = 0;      ///< Half open.
    unsigned long long unit = ~0ULL; ///< Key of the compilation unit; all ones without one.
    bool isInlined = false;
};

/// What is left out. A mask.
enum frames_t : unsigned int {
    frames_Everything = 0,
    frames_NoFunctions = 1, ///< Lines alone; one frame an address.
    frames_NoInlines = 2,   ///< No inlined bodies: the function that the code was compiled into, at the address's line.
    frames_NoLines = 4,     ///< Functions alone.
    frames_NoDemangling = 8 ///< demangled and shortName are the raw name.
};

/// Answers to a question for addresses, in its order. Frames live as long as this object, and are not to be looked at
/// after the bank is gone. Any thread may read and drop it.
class ORV_API IFrames : public ISymMgrObject {
public:
    virtual std::size_t count() = 0;
    /// The innermost frame at the address of that number; null for one outside of the module, where nothing is known,
    /// and beyond the last.
    virtual Frame const* at(std::size_t index) = 0;

protected:
    ~IFrames() = default;
};

/// The frames at count pseudo addresses, in any order; equal ones are answered once. The body at an address is the
/// innermost that holds it, of several the last in the debug information. Any number of threads may ask at the same
/// time; none is started.
///
/// status_Ok, also where nothing is known; what a failed load of symbols returns, with a null out: debug
/// information that can't be read is reported once, and the next call goes by ELF symbols; status_OutOfMemory;
/// status_InvalidArg for a null addresses with a count, and for a bank that the library has not made.
ORV_API status_t framesByAddresses(SymMgrObjectPtr<IFrames>& out, IModuleSymbolBank& bank,
                                   unsigned long long const* addresses, std::size_t count, unsigned int options);

/// The same for one address, with everything. status_InvalidArg for a null address too.
ORV_API status_t framesByAddress(SymMgrObjectPtr<IFrames>& out, IModuleSymbolBank& bank, IAddress* address);

} // namespace ORV_3_30

/// The frame that every debug information format fills.
///
/// A format needs an IDebugInfoLoader that puts its symbols into the module's table, and an
/// ISrcLineResolver for its lines. EmptyDebugInfoLoader is the one with neither.
#pragma once

#include "orv/orv_debuginfoloader.h"

#include <string>

namespace ORV_3_30 {

/// Formats as symFileFormat tells them; the same numbers as those of symbol_file_format_t.
constexpr unsigned int k_noSymbolFileFormat = 0;

/// Stands for a symbol file without debug information: it reports the file's name, and loads nothing.
class EmptyDebugInfoLoader final : public SymMgrObject<IDebugInfoLoader> {
public:
    /// Banks share it, so its count has a lock of its own.
    explicit EmptyDebugInfoLoader(char const* name) : SymMgrObject(true), m_name(name) {}

    char const* symFileName() override { return m_name.c_str(); }
    unsigned int symFileFormat() override { return k_noSymbolFileFormat; }
    status_t loadSymbols(ISymbolTable* /*table*/, AcceptedRanges* /*filter*/, unsigned int /*mask*/,
                         ISrcLineResolver* /*resolver*/) override {
        return status_Ok;
    }
    ISrcLineResolver* srcLineResolver(Scope* /*scope*/, ILock* /*lock*/) override { return nullptr; }
    status_t findStackVariable(ISymbol* /*symbol*/, unsigned long long /*pc*/, unsigned long long /*address*/,
                               SymMgrObjectPtr<IStackFrameContext>& /*context*/, SymMgrObjectPtr<ISymbol>& /*out*/,
                               bool* /*isInteger*/) override {
        return status_False;
    }
    void sectionByIndex(SymMgrObjectPtr<ISection>& out, unsigned int /*index*/) override { out = nullptr; }

private:
    std::string m_name;
};

} // namespace ORV_3_30

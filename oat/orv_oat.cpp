// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Walks the classes of each DEX file and the methods of each class: a symbol for each one that was compiled, and its
// lines.
#include "oat/orv_oat.h"

#include "core/orv_trace.h"
#include "symbols/orv_accepted_ranges.h"

#include <ios>
#include <optional>

namespace ORV_3_30 {
namespace {

/// One load: the walk over all methods.
class OatWalk final : private IOatRows {
public:
    OatWalk(OatReader& reader, OATSymbolCallBack& symbols, AcceptedRanges* filter, OATSrcLineResolver* resolver)
        : m_reader(reader), m_symbols(symbols), m_filter(filter) {
        if (resolver != nullptr) {
            m_lines.emplace(*resolver);
        }
    }

    /// What the last class came to; status_False without one.
    status_t run();

private:
    status_t walkClass(DexLoader const& dex, OatClass const& oatClass, DexClassDef const& definition);
    status_t loadMethod(DexLoader const& dex, OatMethod const& method, DexClassDef const& definition,
                        DexMembers const& members);
    status_t loadLines(DexLoader const& dex, OatMethod const& method, DexClassDef const& definition,
                       std::uint32_t debugInfoOffset);

    std::uint32_t fileId(std::string_view name) override { return m_lines->fileId(name); }
    void addLine(std::uint32_t fileId, std::uint32_t line, unsigned long long address,
                 unsigned long long size) override {
        if (m_isFirst) {
            m_lines->addLine(fileId, line, address, size);
        }
    }

    unsigned long long addressOf(OatMethod const& method) const {
        return method.codeOffset() - std::uint64_t{m_reader.executableOffset()} + m_reader.execAddress();
    }

    OatReader& m_reader;
    OATSymbolCallBack& m_symbols;
    AcceptedRanges* m_filter;
    std::optional<OatLineLoad> m_lines; ///< None where nobody wants lines.
    OatMethodKey m_key{};               ///< Of the method that is at hand.
    bool m_isFirst = false;             ///< Its lines are not in the table.
};

status_t OatWalk::run() {
    status_t last = status_False;
    for (m_key.dex = 0; m_key.dex < m_reader.dexFiles().size(); ++m_key.dex) {
        DexLoader const& dex = m_reader.dexFiles()[m_key.dex];
        for (m_key.classIndex = 0; m_key.classIndex < dex.classCount(); ++m_key.classIndex) {
            DexClassDef definition{};
            OatClass oatClass{};
            if (!dex.classDef(m_key.classIndex, definition)) {
                continue;
            }
            bool const isClass = m_reader.oatClass(dex, m_key.classIndex, oatClass);
            if (ORV_ASSERT(isClass, "cl != NULL")) {
                last = walkClass(dex, oatClass, definition);
            }
        }
    }
    if (m_lines) {
        m_lines->publish();
    }
    return last;
}

/// A method that fails ends its class.
status_t OatWalk::walkClass(DexLoader const& dex, OatClass const& oatClass, DexClassDef const& definition) {
    DexMembers members(dex, definition.classDataOffset);
    status_t status = members.status();
    std::uint64_t const promised = members.promisedBytes();
    if (!m_reader.budgets().memberBytes.spend(promised)) {
        return status;
    }
    for (m_key.method = 0; !failed(status) && members.nextMethod(); ++m_key.method) {
        std::optional<OatMethod> const method = oatMethodByIndex(oatClass, m_key.method, m_reader.version());
        if (method) {
            status = loadMethod(dex, *method, definition, members);
        }
    }
    if (members.bytesRead() > promised) {
        m_reader.budgets().memberBytes.settle(members.bytesRead() - promised);
    }
    return status;
}

status_t OatWalk::loadMethod(DexLoader const& dex, OatMethod const& method, DexClassDef const& definition,
                             DexMembers const& members) {
    DexMethodName name;
    status_t const status = dex.methodName(members.methodIndex(), name);
    if (status != status_Ok) {
        return status;
    }
    if (method.codeOffset() < m_reader.executableOffset()) {
        if (method.codeOffset() != 0) {
            ORV_WARN("Invalid offset in dex method");
        }
        return status_False;
    }
    unsigned long long const address = addressOf(method);
    ORV_INFO("Dex method: " << name.text() << " offset: 0x" << std::hex << address << std::dec
                            << " size: " << method.codeSize());
    if (m_filter != nullptr && !m_filter->accept(address, address + method.codeSize())) {
        return status_Ok;
    }
    if (!m_reader.budgets().nameBytes.spend(name.size())) {
        return status_Ok;
    }
    m_symbols.symbol({name.text().c_str(), address, method.codeSize(), symbol_visibility_Local, symbol_kind_Function});
    DexCodeItem code{};
    if (members.codeOffset() == 0 || !dex.codeItem(members.codeOffset(), code) || code.debugInfoOffset == 0) {
        return status_Ok;
    }
    return loadLines(dex, method, definition, code.debugInfoOffset);
}

status_t OatWalk::loadLines(DexLoader const& dex, OatMethod const& method, DexClassDef const& definition,
                            std::uint32_t debugInfoOffset) {
    if (!m_lines) {
        return status_InvalidPointer;
    }
    OatBudgets& budgets = m_reader.budgets();
    OatMappingHead head{};
    OatMappings mappings;
    if (readMappingHead(method, m_reader.data(), head) == status_Ok) {
        if (!budgets.mappings.spend(head.mostPairs())) {
            return status_Ok;
        }
        readMappings(method, head, m_reader.version(), mappings); // what was read counts, whatever comes of the rest
    }
    std::uint64_t const mostRows = LineState::mostRows(mappings);
    if (budgets.programBytes.isSpent() || !budgets.rows.spend(mostRows)) {
        return status_Ok;
    }
    m_isFirst = m_lines->isFirst(m_key);
    LineState state(*this, mappings,
                    {addressOf(method), method.codeSize(), m_reader.executableOffset(), m_reader.execAddress()});
    status_t const status = readDebugInfo(dex, definition.sourceFileIndex, debugInfoOffset, budgets, state);
    state.finish();
    budgets.rows.giveBack(mostRows - state.rowCount());
    return status;
}

} // namespace

status_t OATDebugInfoLoader::loadSymbols(ISymbolTable* table, AcceptedRanges* filter, unsigned int /*mask*/,
                                         ISrcLineResolver* resolver) {
    if (table == nullptr) {
        return status_InvalidPointer;
    }
    std::lock_guard<std::mutex> const guard(m_loadLock);
    status_t header = status_Ok;
    if (m_header.made() == nullptr) {
        header = m_header.get([this] { return std::make_unique<status_t>(m_reader.readOatHeader()); });
        if (header != status_Ok) {
            ORV_WARN("Failed to read OAT header: Invalid format or unsupported version");
        }
    }
    m_reader.budgets().refill(m_reader.data().size());
    trace::DecidedOnce const infos(trace::level_Info); // there is one for each line
    OATSymbolCallBack symbols(loader(), table, resolver);
    OatWalk walk(m_reader, symbols, filter, dynamic_cast<OATSrcLineResolver*>(resolver));
    status_t const walked = walk.run();
    return header != status_Ok ? header : walked;
}

ISrcLineResolver* OATDebugInfoLoader::srcLineResolver(Scope* scope, ILock* /*lock*/) {
    if (loader() == nullptr) {
        return nullptr;
    }
    std::lock_guard<std::mutex> const guard(m_resolverLock);
    if (!m_lineResolver) {
        SymMgrObjectPtr<OATSrcLineResolver> const fresh(new OATSrcLineResolver(scope, loader()));
        fresh->open();
        m_lineResolver = fresh;
    }
    m_lineResolver->moveTo(scope);
    return m_lineResolver.get();
}

} // namespace ORV_3_30

// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Java source files by their names, and line tables that take each other's place: a load copies what is there ahead of
// what it adds.
#include "oat/orv_oat_line_resolver.h"

#include "core/orv_trace.h"

#include <algorithm>
#include <iterator>

namespace ORV_3_30 {

ISourceFile* OATSrcLineResolver::sourceFileById(unsigned int id) {
    LockGuard guard(&m_lock);
    if (id < m_sourceFiles.size()) {
        return m_sourceFiles[id].get();
    }
    ORV_WARN("Invalid source file id: " << id);
    return nullptr;
}

void OATSrcLineResolver::lineTable(SymMgrObjectPtr<ILineTable>& out) {
    LockGuard guard(&m_lock);
    out = m_lineTable.get();
}

/// Ahead of the table, which a load replaces. Methods that can't be read leave lines that can.
void OATSrcLineResolver::loadMethods(Scope* scope) {
    if (Scope* const loaded = scope != nullptr ? scope : this->scope()) {
        loaded->ensureKinds(symbol_kind_Function);
    }
}

SymMgrObjectPtr<LineTable> OATSrcLineResolver::flatTable(status_t& status, Scope* scope) {
    loadMethods(scope);
    status = status_Ok;
    LockGuard guard(&m_lock);
    return m_lineTable;
}

status_t OATSrcLineResolver::sourceLineIterator(SymMgrObjectPtr<SourceLines>& out, unsigned long long start,
                                                unsigned long long end, unsigned long long unit, unsigned int fileId,
                                                Scope* scope) {
    loadMethods(scope);
    return SrcLineResolver::sourceLineIterator(out, start, end, unit, fileId, scope);
}

std::uint32_t OATSrcLineResolver::fileId(std::string_view name) {
    std::string key(name);
    LockGuard guard(&m_lock);
    auto const known = m_fileIds.find(key);
    if (known != m_fileIds.end()) {
        return known->second;
    }
    auto const id = static_cast<std::uint32_t>(m_sourceFiles.size());
    SymMgrObjectPtr<SourceFile> const file(new SourceFile(this, id, key, 0, 0));
    m_sourceFiles.push_back(file);
    try {
        m_fileIds.emplace(std::move(key), id);
    } catch (...) {
        m_sourceFiles.pop_back();
        throw;
    }
    return id;
}

bool OatLineLoad::isFirst(OatMethodKey const& method) {
    std::vector<OatMethodKey> const& known = m_resolver.m_methods;
    while (m_known < known.size() && known[m_known] < method) {
        ++m_known;
    }
    if (m_known < known.size() && !(method < known[m_known])) {
        return false;
    }
    m_added.push_back(method);
    return true;
}

void OatLineLoad::addLine(std::uint32_t fileId, std::uint32_t line, unsigned long long address,
                          unsigned long long size) {
    if (!m_table) {
        m_table = new LineTable(m_resolver.m_loader, &m_resolver);
        LineTable const& before = *m_resolver.m_lineTable;
        for (std::uint32_t row = 0; row < before.rowCount(); ++row) {
            SrcLocator const at = before.locator(row);
            m_table->addLine(0, at.fileId, at.line, at.column, at.start, at.end - at.start, at.discriminator);
        }
    }
    m_table->addLine(0, fileId, line, 0, address, size, 0);
}

void OatLineLoad::publish() {
    if (m_added.empty()) {
        return;
    }
    std::vector<OatMethodKey> methods;
    methods.reserve(m_resolver.m_methods.size() + m_added.size());
    std::merge(m_resolver.m_methods.begin(), m_resolver.m_methods.end(), m_added.begin(), m_added.end(),
               std::back_inserter(methods));
    // Nothing fails from here on.
    LockGuard guard(&m_resolver.m_lock);
    m_resolver.m_methods.swap(methods);
    if (m_table) {
        m_resolver.m_lineTable = m_table;
    }
}

} // namespace ORV_3_30

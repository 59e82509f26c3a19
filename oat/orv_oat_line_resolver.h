// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The line resolver of OAT: Java source files, and a table that loads of symbols fill.
///
///     OatLineLoad load(resolver);
///     if (load.isFirst({dex, classIndex, method})) { load.addLine(load.fileId("Foo.java"), 12, address, 1); }
///     load.publish();
#pragma once

#include "lines/orv_dil.h"
#include "lines/orv_sourceline_impl.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <vector>

namespace ORV_3_30 {

/// A method by its place in the OAT file.
struct OatMethodKey {
    std::uint32_t dex;
    std::uint32_t classIndex;
    std::uint32_t method;

    friend bool operator<(OatMethodKey const& a, OatMethodKey const& b) {
        return std::tie(a.dex, a.classIndex, a.method) < std::tie(b.dex, b.classIndex, b.method);
    }
};

/// A table that others may read is changed no more: a load that has further lines puts another in its place, and who
/// reads the old one goes on with it.
class OATSrcLineResolver final : public SrcLineResolver {
public:
    OATSrcLineResolver(Scope* scope, IFileFormatLoader* loader) : SrcLineResolver(scope), m_loader(loader) {}
    /// Makes the empty table. To be called once, before anything else: apart from construction, since a counted object
    /// that can't be finished must go by its count.
    void open() { m_lineTable = new LineTable(m_loader, this); }

    /// Always 0: files are found by the ids that lines have, and not by a walk.
    unsigned int sourceFileCount() override { return 0; }
    /// Null, with a warning, for an id that no line has.
    ISourceFile* sourceFileById(unsigned int id) override;
    ICompUnitDetails* compUnitDetailsById(unsigned long long /*id*/) override { return nullptr; }
    void lineTable(SymMgrObjectPtr<ILineTable>& out) override;
    /// Has the methods loaded first, as the lines come with them.
    status_t sourceLineIterator(SymMgrObjectPtr<SourceLines>& out, unsigned long long start, unsigned long long end,
                                unsigned long long unit, unsigned int fileId, Scope* scope) override;

    /// For the next bank on the same loader.
    void moveTo(Scope* scope) { setScope(scope); }

private:
    friend class OatLineLoad;

    SymMgrObjectPtr<LineTable> flatTable(status_t& status, Scope* scope) override;
    void loadMethods(Scope* scope);
    std::uint32_t fileId(std::string_view name);

    IFileFormatLoader* m_loader; ///< Not counted.
    OrvLock m_lock;              ///< Guards the table's place and the files.
    SymMgrObjectPtr<LineTable> m_lineTable;
    std::vector<SymMgrObjectPtr<SourceFile>> m_sourceFiles; ///< By id.
    std::unordered_map<std::string, std::uint32_t> m_fileIds;
    std::vector<OatMethodKey> m_methods; ///< Whose lines are in the table, sorted. For loads alone.
};

/// The lines that one load adds. Loads run one after the other. What is not published is as if it had never been.
class OatLineLoad {
public:
    explicit OatLineLoad(OATSrcLineResolver& resolver) : m_resolver(resolver) {}

    /// Asked in the order of methods: false for one whose lines are there from a load before.
    bool isFirst(OatMethodKey const& method);
    std::uint32_t fileId(std::string_view name) { return m_resolver.fileId(name); }
    void addLine(std::uint32_t fileId, std::uint32_t line, unsigned long long address, unsigned long long size);
    void publish();

private:
    OATSrcLineResolver& m_resolver;
    SymMgrObjectPtr<LineTable> m_table; ///< Null as long as there is nothing to add.
    std::vector<OatMethodKey> m_added;
    std::size_t m_known = 0; ///< How many of the resolver's methods stand in front of the one asked for last.
};

} // namespace ORV_3_30

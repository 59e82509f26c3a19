// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// A module as the commands see it, and the options that all commands share.
#pragma once

#include <orv/orv.h>

#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace orv_cli {

using namespace ORV_3_30;

/// What goes wrong for the user: one line on standard error, exit status 1.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct CommonOptions {
    arch_t arch = arch_Unknown;
    std::string targetName;        ///< Which kernel of its program a GPU binary is.
    bool missingIsFailure = false; ///< Who asks tells by itself that there is no debug information.
    bool noDebugInfo = false;
    bool offload = false;                ///< The binary that the module carries for an offload processor.
    std::vector<std::string> debugRoots; ///< Empty: those of distributions.
    bool askServers = false;             ///< Those of DEBUGINFOD_URLS.
    std::string symbolFile;              ///< Empty: whichever is found.
    bool json = false;
    bool quiet = false; ///< Failures alone are told.
    std::string logLevel = "off";
};

/// Says on standard error, once, what is no failure, unless the options forbid it.
void note(std::string const& text, CommonOptions const& options);
/// The name under which the library is to look for a module. It folds names as text: a component that begins with two
/// dots, or a link that two dots follow, would lead it to another file, so such a name is given as the real path.
std::string libraryName(std::string const& name);
/// The bytes that the options name. Throws Failure where there are none.
SymMgrObjectPtr<IModuleImage> imageOf(std::string const& name, CommonOptions const& options);
/// Why a module can't be had, with its name in front.
Failure failureOf(std::string const& name, status_t status);
/// The words of a status for people.
char const* describe(status_t status);
/// What debug information of a format that can't be read means for the user.
std::string describeDebugInfo(status_t status, unsigned int format);
/// By the names that they have on the command line and in answers.
extern std::map<std::string, arch_t> const k_architectures;
char const* nameOf(arch_t arch);
char const* nameOf(exec_format_t format);
char const* nameOfSymbolFormat(unsigned int format);

/// Visits what an iterator of the library's gives. A null one gives nothing.
template <typename T, typename Visitor>
void forEach(SymMgrObjectPtr<IIterator<T>> const& iterator, Visitor const& visit) {
    for (T item = iterator ? iterator->current() : T(); item; item = iterator->current()) {
        visit(item);
        iterator->next();
    }
}

class Resolver;

/// A loaded module. Its bank is never null.
class Module {
public:
    /// Throws Failure if the module can't be loaded. The module stays until the process ends, and goes
    /// with it: taking tens of thousands of symbols apart one by one would serve nobody.
    enum class View { AsItStands, LaidOut }; ///< LaidOut: the sections of a relocatable file stand behind each other.
    static Module& load(std::string name, CommonOptions const& options, View view = View::AsItStands);
    Module(Module const&) = delete;
    Module& operator=(Module const&) = delete;
    ~Module();

    std::string const& name() const { return m_name; }
    IModuleSymbolBank& bank() const { return *m_bank; }
    /// Runs a query of the bank that may load. If the debug information can't be read, that is said once
    /// on standard error, and what is left answers.
    template <typename Query> status_t load(Query query) {
        status_t status = query();
        if (failed(status)) {
            noteBadDebugInfo(status);
            status = query();
        }
        return status;
    }
    /// What that means for the user; of what is only compressed in a way that can't be read, that.
    std::string whyBadDebugInfo(status_t status) const;
    /// Says once what can't be taken out of its compression, if anything.
    void noteUnread() const;
    status_t symbolRangeByAddress(IAddress& address, SymMgrObjectPtr<ISymbolRange>& out, symbol_kind_t mask);
    /// The file format loader, for what the bank does not tell: sections by index and by address.
    IFileFormatLoader& loader();
    /// What was sought in vain for a stripped module, or how to have an OAT file read, in one line; empty for all
    /// others.
    std::string missingDebugInfo();
    /// Decides on symbol files, as the options say.
    ISymbolFileResolver& resolver();
    /// True for a file of the 32-bit class.
    bool is32Bit();
    /// True for a kernel that has its symbols, and its place, from a list.
    bool isListedKernel() const { return m_bank->symFileFormat() == symbolFormatSystemMap; }
    /// The kernel that a GPU binary is, as far as that is known; empty for all other modules.
    std::string const& kernelName() const { return m_kernelName; }
    /// True for a relocatable file whose sections were laid out.
    bool isLaidOut() const { return m_isLaidOut; }
    /// True if all commands know its sections by the same addresses, so that a number may also be one of them.
    bool hasLaidOutAddresses() const { return m_hasAddresses; }

private:
    /// Says once that the debug information can't be read.
    void noteBadDebugInfo(status_t status);
    Module(std::string name, CommonOptions const& options, View view);
    status_t loadBank();
    void layOut();

    std::string m_name;
    std::string m_kernelName;
    std::string m_unread; ///< Which sections can't be taken out of their compression; empty: none.
    CommonOptions m_options;
    std::unique_ptr<Resolver> m_resolver;
    SymMgrObjectPtr<IModuleImage>
        m_image; ///< What is asked beside the bank, and what that is made of if it is laid out.
    bool m_isLaidOut = false;
    bool m_hasAddresses = false;
    SymMgrObjectPtr<ISymbolManager> m_manager;
    SymMgrObjectPtr<IModuleSymbolBank> m_bank;
    SymMgrObjectPtr<IFileFormatLoader> m_loader; ///< Made on first use.
};

/// An address of our own making, for bounds that lie in no segment. Only its value counts.
class PlainAddress final : public SymMgrObject<IAddress> {
public:
    explicit PlainAddress(unsigned long long value) : m_value(value) {}
    unsigned long long rva() override { return m_value; }
    unsigned long long pseudoAddr() override { return m_value; }
    ISegment* segment() override { return nullptr; }
    unsigned long long segmentOffset() override { return ~0ULL; }
    unsigned long long fileOffset() override { return ~0ULL; }
    bool isEqual(IAddress* other) override { return other->pseudoAddr() == m_value; }
    bool isNotEqual(IAddress* other) override { return other->pseudoAddr() != m_value; }
    bool isAfter(IAddress* other) override { return other->pseudoAddr() < m_value; }
    bool isBefore(IAddress* other) override { return other->pseudoAddr() > m_value; }

private:
    unsigned long long m_value;
};

/// Hexadecimal with or without 0x, and nothing else in the text.
bool parseAddress(std::string_view text, unsigned long long& out);

} // namespace orv_cli

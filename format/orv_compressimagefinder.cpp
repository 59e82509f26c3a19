// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Looks for a gzip header (RFC 1952) at the front of each loadable segment.
#include "core/orv_budget.h"
#include "format/orv_elf_helper.h"
#include "image/orv_kernelimage.h"

#include <algorithm>
#include <array>

namespace ORV_3_30 {
namespace {

constexpr unsigned char k_gzip[] = {0x1F, 0x8B, 8};

class CompressImageFinder final : public ElfHelper::IProgramHeadersCallback {
public:
    explicit CompressImageFinder(SymMgrObjectPtr<IModuleImage> image)
        : m_image(std::move(image)), m_front("fronts of segments", m_image->size()) {}

    void programHeader(Elf64_Phdr const& header, unsigned int /*ordinal*/) override {
        std::array<unsigned char, 8192> bytes;
        std::uint64_t const wanted = std::min<std::uint64_t>(header.p_filesz, bytes.size());
        std::uint64_t const count = m_front.spend(wanted) ? m_image->read(header.p_offset, wanted, bytes.data()) : 0;
        m_found.segmentOffset = header.p_offset; // of the last one, wherever the stream is
        if (count > wanted || count <= sizeof(k_gzip)) {
            return; // it can't be read, or is too short
        }
        // The last position is not tried.
        unsigned char const* const begin = bytes.data();
        unsigned char const* const end = begin + count - 1;
        unsigned char const* const at = std::search(begin, end, std::begin(k_gzip), std::end(k_gzip));
        if (at != end) {
            m_found.gzipOffset = header.p_offset + static_cast<std::uint64_t>(at - begin);
        }
    }
    CompressedKernel const& found() const { return m_found; }

private:
    SymMgrObjectPtr<IModuleImage> m_image;
    Budget m_front; ///< Segments don't overlap: together they are no larger than the file.
    CompressedKernel m_found;
};

} // namespace

CompressedKernel findCompressedKernel(SymMgrObjectPtr<IModuleImage> const& file) {
    SymMgrObjectPtr<ElfHelper> const helper(new ElfHelper(file));
    CompressImageFinder finder(file);
    helper->walkProgramHeaders(finder);
    return finder.found();
}

} // namespace ORV_3_30

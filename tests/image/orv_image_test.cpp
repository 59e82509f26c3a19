// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Images of kernels and of embedded binaries: what serves which name, and which bytes.

#include "image/orv_kernelimage.h"
#include "image/orv_offloadimage.h"
#include "support/orv_elf_builder.h"
#include "support/orv_test_support.h"

using namespace orv_test;

namespace {

using Image = SymMgrObjectPtr<IModuleImage>;

Image imageOf(std::string const& path, arch_t arch = arch_Unknown, bool forceOffload = false) {
    return IModuleImage::create(path.c_str(), arch, forceOffload);
}

/// "architecture offset size", or "null".
std::string textOf(Image const& image) {
    return image ? std::to_string(image->architecture()) + " " + std::to_string(image->imageOffset()) + " " +
                       std::to_string(image->size())
                 : "null";
}

std::string bytesOf(IModuleImage& image) {
    std::string bytes(image.size(), '\0');
    EXPECT_EQ(image.read(0, bytes.size(), bytes.data()), bytes.size());
    return bytes;
}

/// Fields as (value, width), one behind the other.
std::string packed(std::vector<std::pair<unsigned long long, unsigned int>> const& fields) {
    std::string out;
    for (auto const& [value, width] : fields) {
        ElfBuilder::put(out, value, width);
    }
    return out;
}

/// A file with a loadable segment for each text.
std::string withSegments(std::vector<std::string> const& texts) {
    ElfBuilder elf;
    elf.withSectionHeaders = false;
    std::uint64_t offset = 64 + 56 * texts.size();
    for (std::string const& text : texts) {
        elf.load(PF_R, 0x1000 + offset, 0x100, offset, text.size());
        offset += text.size();
    }
    std::string file = elf.bytes().substr(0, 64 + 56 * texts.size());
    for (std::string const& text : texts) {
        file += text;
    }
    return file;
}

std::string const k_gzip = "\x1F\x8B\x08";

} // namespace

TEST(KernelImages, HeadersForAKernelWithoutFile) {
    Image const wide = imageOf("vmlinux-x86_64");
    Image const narrow = imageOf("vmlinux", arch_Arm);
    std::string const identification = "\x7F"
                                       "ELF";
    EXPECT_EQ(bytesOf(*wide).substr(0, 6), identification + "\2\1");
    EXPECT_EQ(bytesOf(*wide).substr(16), packed({{0, 2},
                                                 {62, 2},
                                                 {0, 4},
                                                 {0, 8},
                                                 {64, 8},
                                                 {0, 8},
                                                 {0, 4},
                                                 {0, 2},
                                                 {56, 2},
                                                 {1, 2},
                                                 {0, 2},
                                                 {0, 2},
                                                 {0, 2},
                                                 {1, 4},
                                                 {1, 4},
                                                 {~0ULL, 8},
                                                 {0xFFFFFFFF80000000, 8},
                                                 {0, 8},
                                                 {0, 8},
                                                 {0x7FFFFFFF, 8},
                                                 {0, 8}}));
    EXPECT_EQ(bytesOf(*narrow).substr(0, 6), identification + "\1\1");
    EXPECT_EQ(bytesOf(*narrow).substr(16),
              packed({{0, 2},          {3, 2},          {0, 4}, {0, 4}, {52, 4},         {0, 4}, {0, 4},
                      {0, 2},          {32, 2},         {1, 2}, {0, 2}, {0, 2},          {0, 2}, {1, 4},
                      {0xFFFFFFFF, 4}, {0x80000000, 4}, {0, 4}, {0, 4}, {0x7FFFFFFF, 4}, {1, 4}, {0, 4}}));
    char byte = 0;
    EXPECT_EQ(wide->read(119, 1, &byte), 1U);
    EXPECT_EQ(wide->read(119, 2, &byte), 0U);
    EXPECT_EQ(wide->read(~0ULL, 2, &byte), 0U);
}

TEST(KernelImages, WhichOneServesAName) {
    TempDir const dir;
    std::string const elf = withSegments({"abcdef"});
    std::string const size = std::to_string(elf.size());
    struct {
        std::string path;
        arch_t arch;
        char const* image;
    } const rows[] = {
        {"/nowhere/vmlinux", arch_Unknown, "1 0 84"},
        {"/nowhere/x86_64/vmlinux", arch_Unknown, "3 0 120"},
        {"/nowhere/x86_64/vmlinux", arch_X86, "1 0 84"},
        {"/nowhere/vmlinu", arch_X86_64, "3 0 120"},
        {"/vmlinu/prog", arch_Em181, "7 0 84"}, // anywhere in the path
        {"/nowhere/vmlin", arch_X86, "1 0 0"},
        {dir.file("vmlinux", elf), arch_X86, "1 0 126"},
        {dir.file("vmlinuz-text", "no ELF file"), arch_Unknown, "1 0 84"},
        {dir.file("vmlinuz-plain", elf), arch_X86_64, "3 0 120"}, // nothing compressed in it
        {dir.file("vmlinuz-gzip", withSegments({k_gzip + "..."})), arch_X86_64, "0 0 126"},
    };
    for (auto const& row : rows) {
        EXPECT_EQ(textOf(imageOf(row.path, row.arch)), row.image) << row.path;
    }
    LogCapture log(30000);
    EXPECT_FALSE(IModuleImage::create(nullptr, arch_Unknown, false));
    EXPECT_EQ(log.count("IModuleImage::create: wrong parameter. binFileName should not be empty"), 1U);
}

TEST(KernelImages, FindsTheCompressedKernel) {
    TempDir const dir;
    auto const find = [&](std::vector<std::string> const& texts) {
        CompressedKernel const found =
            findCompressedKernel(imageOf(dir.file("k", withSegments(texts)))); // by a name that is no kernel's
        return std::to_string(static_cast<long long>(found.gzipOffset)) + " " +
               std::to_string(static_cast<long long>(found.segmentOffset));
    };
    std::string const filler(8189, '.');
    EXPECT_EQ(find({"....", k_gzip + "."}), "180 180");
    EXPECT_EQ(find({"." + k_gzip + ".", "..."}), "177 181"); // the last segment, wherever the stream is
    EXPECT_EQ(find({k_gzip + ".", k_gzip + "."}), "180 180");
    EXPECT_EQ(find({k_gzip}), "-1 120");       // three bytes
    EXPECT_EQ(find({"." + k_gzip}), "-1 120"); // the last place is not tried
    EXPECT_EQ(find({filler.substr(1) + k_gzip + "."}), "8308 120");
    EXPECT_EQ(find({filler + k_gzip + "."}), "-1 120"); // at the end of what is looked at
    EXPECT_EQ(find({}), "-1 -1");
    ElfBuilder unreadable;
    unreadable.withSectionHeaders = false;
    unreadable.load(PF_R, 0x1000, 0x100, 0x8000000000000000, 100);
    EXPECT_EQ(findCompressedKernel(imageOf(dir.file("k", unreadable.bytes()))).gzipOffset, ~0ULL);

    std::string const file = withSegments({"." + k_gzip + ".", "..."});
    Image const image = imageOf(dir.file("vmlinuz", file));
    std::string bytes(181, '\0');
    EXPECT_EQ(image->read(0, 181, bytes.data()), 181U);
    EXPECT_EQ(bytes, file.substr(0, 181));
    EXPECT_EQ(image->read(1, 181, bytes.data()), 0U); // over the limit, the start of the last segment
    EXPECT_EQ(image->read(~0ULL, 2, bytes.data()), 0U);
    EXPECT_EQ(static_cast<CompressedImage&>(*image).gzipOffset(), 177U);
}

TEST(OffloadImages, TheEmbeddedBinary) {
    std::string const mark = "\x7F"
                             "ELF\2\1\1";
    auto const host = [](std::string const& rodata, std::uint16_t machine = EM_X86_64) {
        ElfBuilder elf;
        elf.machine = machine;
        elf.load(PF_R, 0x1000, 0x1000);
        elf.section(".rodata", SHT_PROGBITS, SHF_ALLOC, 0x1000, rodata);
        return elf.bytes();
    };
    TempDir const dir;
    ElfBuilder bare;
    bare.section(".text", SHT_PROGBITS, SHF_ALLOC, 0x1000, "code");
    ElfBuilder unread;
    unread.section(".rodata", SHT_NOBITS, SHF_ALLOC, 0x1000, "", 0x100);
    constexpr std::size_t k_rodata = 64 + 56; // behind the headers
    struct {
        char const* what;
        std::string file;
        arch_t arch;
        bool isForced;
        long long offset; ///< -1: no image.
        char const* warning;
    } const rows[] = {
        {"at its start", host(mark + "x"), arch_Em181, false, k_rodata, nullptr},
        {"the first of two", host("..." + mark + mark + "x"), arch_Em180, false, k_rodata + 3, nullptr},
        {"by force", host("..." + mark + "x"), arch_X86_64, true, k_rodata + 3, nullptr},
        {"not asked for", host(mark + "x"), arch_X86_64, false, 0, nullptr},
        {"at the end", host("..." + mark), arch_Em181, false, 0, nullptr},
        {"too small", host(mark), arch_Em181, false, 0,
         "createOffloadImage: the section is too small for offload image, section name:.rodata"},
        {"no section", bare.bytes(), arch_Em181, false, 0, "createOffloadImage: cannot get section  .rodata"},
        {"no bytes", unread.bytes(), arch_Em181, false, 0, nullptr},
        {"an offload binary itself", host(mark + "x", 181), arch_Em181, false, 0, nullptr},
        {"that carries another", host(mark + "x", 180), arch_Em181, true, k_rodata, nullptr},
        {"no ELF file", "text of no format", arch_Em180, false, -1, ", IModuleImage::create(): cannot create ffl"},
    };
    for (auto const& row : rows) {
        std::string const path = dir.file("host", row.file);
        LogCapture log(30000);
        Image const image = imageOf(path, row.arch, row.isForced);
        if (row.warning != nullptr) {
            EXPECT_EQ(log.count(path + row.warning), 1U) << row.what;
        }
        EXPECT_EQ(log.messages().size(), row.warning != nullptr ? 1U : 0U) << row.what;
        ASSERT_EQ(static_cast<bool>(image), row.offset >= 0) << row.what;
        if (image) {
            EXPECT_EQ(image->imageOffset(), row.offset) << row.what;
            EXPECT_EQ(image->architecture(), row.offset != 0 ? arch_Em181 : row.arch) << row.what;
            EXPECT_EQ(bytesOf(*image), row.file.substr(image->imageOffset())) << row.what;
        }
    }
    LogCapture log(30000);
    EXPECT_FALSE(createOffloadImage({}));
    EXPECT_EQ(log.count("NULL pointer: ffl"), 1U);
}

TEST(OffloadImages, AreModulesOfTheirOwn) {
    ElfBuilder inner;
    inner.machine = 181;
    inner.load(PF_R | PF_X, 0x400000, 0x1000, 0x10);
    inner.section(".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x400100, std::string(0x20, 'x'));
    inner.symbol("kernel", STB_GLOBAL, STT_FUNC, 0x400100, 0x20);
    ElfBuilder outer;
    outer.load(PF_R | PF_X, 0x1000, 0x1000);
    outer.section(".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x1000, std::string(0x20, 'x'));
    outer.section(".rodata", SHT_PROGBITS, SHF_ALLOC, 0x1100, "before" + inner.bytes());
    outer.symbol("host", STB_GLOBAL, STT_FUNC, 0x1000, 0x20);
    TempDir const dir;
    std::string const path = dir.file("prog", outer.bytes());
    SymMgrObjectPtr<ISymbolManager> manager;
    ISymbolManager::create(manager);
    SymMgrObjectPtr<IModuleSymbolBank> offload;
    SymMgrObjectPtr<IModuleSymbolBank> host;
    ASSERT_EQ(manager->loadSymbolsFromModuleEx(path.c_str(), nullptr, offload, arch_Em181, 0, ""), status_Ok);
    ASSERT_EQ(manager->loadSymbolsFromModuleEx(path.c_str(), nullptr, host, arch_Unknown, 0, ""), status_Ok);
    EXPECT_EQ(symbolAt(*offload, 0x400110), "kernel@400100+32");
    EXPECT_EQ(symbolAt(*host, 0x1010), "host@1000+32");
    SymMgrObjectPtr<IAddress> address;
    EXPECT_EQ(offload->addressByValue(0x400008, address), status_Ok);
    EXPECT_EQ(address->segment()->fileOffset(), imageOf(path, arch_Em181)->imageOffset() + 0x10);
}

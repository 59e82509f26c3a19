// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Sections and segments over a loader's file.
#include "format/orv_section.h"

#include "core/orv_cursor.h"
#include "core/orv_trace.h"
#include "format/orv_ffl.h"

#include <cstring>

namespace ORV_3_30 {

status_t Section::readAt(unsigned long long offset, unsigned long long size, SymMgrObjectPtr<IBuffer>& out) {
    return (m_emptyInFile & 1) != 0 ? status_False : m_owner->readBytes(offset + m_fileOffset, size, out);
}

status_t SectionDataAdapter::readAt(unsigned long long offset, unsigned long long size, SymMgrObjectPtr<IBuffer>& out) {
    if ((m_emptyInFile & 1) != 0) {
        return status_False;
    }
    if (!contains(m_data->size(), offset, size)) {
        ORV_ERROR("Unable to read " << size << " bytes from section: " << m_name.text);
        return status_False;
    }
    SymMgrObjectPtr<IBuffer> buffer(new ByteBuffer(size));
    if (buffer->size() != size) {
        ORV_ERROR("Unable to create ByteBuffer of size: " << size);
        return status_OutOfMemory;
    }
    if (size != 0) {
        std::memcpy(buffer->data(), m_data->data() + offset, size);
    }
    out = buffer;
    return status_Ok;
}

status_t Segment::readAt(unsigned long long offset, unsigned long long size, SymMgrObjectPtr<IBuffer>& out) {
    return m_owner->readBytes(offset + m_fileOffset, size, out);
}

void Segment::sections(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISection>>>& out, bool /*codeOnly*/) { out = nullptr; }

} // namespace ORV_3_30

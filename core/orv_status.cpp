// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The texts of statuses, one flat switch.
#include "orv/orv_status.h"

#include <ostream>

namespace ORV_3_30 {

char const* toUString(status_t status) {
    switch (status) {
    case status_Ok: return "\"Operation succeeded\"";
    case status_False: return "\"Operation succeeded and return logical FALSE\"";
    case status_Fail: return "\"Unspecified error\"";
    case status_NotImplemented: return "\"Not implemented\"";
    case status_OutOfMemory: return "\"Out of memory\"";
    case status_InvalidArg: return "\"One or more arguments are invalid\"";
    case status_NotSupported: return "\"Not supported\"";
    case status_InvalidPointer: return "\"Invalid pointer\"";
    case status_CantCreateFile: return "\"Can't create file\"";
    case status_CantDeleteFile: return "\"Can't delete file\"";
    case status_CantOpenFile: return "\"Can't open file\"";
    case status_CantCloseFile: return "\"Can't close file\"";
    case status_CantWriteFile: return "\"Can't write to file\"";
    case status_CantReadFile: return "\"Can't read from file\"";
    case status_BadFileFormat: return "\"File format is incorrect\"";
    case status_BadDebugInfo: return "\"Debug information is incorrect\"";
    case status_NoDebugInfo: return "\"There is no debug info of some type\"";
    case status_NoPdbFile: return "\"There is no valid .pdb file\"";
    case status_NoPdbReader: return "\"There is no pdb reader\"";
    case status_NotFound: return "\"Not found\"";
    case status_FileChanged: return "\"File was changed\"";
    case status_FileNotExist: return "\"File does not exist\"";
    case status_UnknownProperty: return "\"Unknown Property\"";
    case status_EmptyFileName: return "\"Empty file name\"";
    case status_NotInitialized: return "\"Internal object is not initialized properly\"";
    case status_UnknownFileFormat: return "\"Unknown file format\"";
    case status_UnsupportedFileVersion: return "\"Unsupported version of file format\"";
    }
    return "<Unknown status>";
}

std::ostream& operator<<(std::ostream& out, status_t status) { return out << toUString(status); }

} // namespace ORV_3_30

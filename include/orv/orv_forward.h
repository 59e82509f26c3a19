// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The interfaces that others refer to by name. Their visibility must be known before a template is
/// made of them, so all headers have these from here.
#pragma once

#include "orv/orv_export.h"

namespace ORV_3_30 {

class ORV_API IAddress;
class ORV_API ICompUnitDetails;
class ORV_API IFileFormatLoader;
class ORV_API IFrames;
class ORV_API IInlineInstance;
class ORV_API ISection;
class ORV_API ISegment;
class ORV_API ISourceLine;
class ORV_API ISourceLocation;
class ORV_API IStackFrameContext;
class ORV_API ISymbol;
class ORV_API ISymbolRange;
class ORV_API ISymbolTable;
class ORV_API IThunk;

} // namespace ORV_3_30

// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// ORV, the symbol manager: the chief header. Include this one and link with -lorv.
///
/// C++14 and later, without a warning under -Wnon-virtual-dtor. The namespace bears the version of the interfaces; orv
/// is a name for it that stays.
#pragma once

#include "orv/orv_address.h"
#include "orv/orv_debuginfoloader.h"
#include "orv/orv_debugroots.h"
#include "orv/orv_dwarf.h"
#include "orv/orv_export.h"
#include "orv/orv_fileformatloader.h"
#include "orv/orv_forward.h"
#include "orv/orv_frames.h"
#include "orv/orv_iterator.h"
#include "orv/orv_moduleimage.h"
#include "orv/orv_modulesymbolbank.h"
#include "orv/orv_object.h"
#include "orv/orv_optreport.h"
#include "orv/orv_programfile.h"
#include "orv/orv_reading.h"
#include "orv/orv_scope.h"
#include "orv/orv_section.h"
#include "orv/orv_source.h"
#include "orv/orv_stackframe.h"
#include "orv/orv_status.h"
#include "orv/orv_symbol.h"
#include "orv/orv_symbolfileresolver.h"
#include "orv/orv_symbolmanager.h"
#include "orv/orv_symbolrange.h"

namespace orv = ORV_3_30;

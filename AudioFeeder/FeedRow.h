// A configuration row as the feeder reads it.
#pragma once

#include "ConfigClient/TableNames.h"
#include "VX/ParamList.h"

namespace Orv {

namespace Columns = ConfigConnection::Columns;
namespace Tables = ConfigConnection::Tables;

// An override list in front of a base list: a field is read from the override list if that has it, else from the base
// list. An empty row, with neither list, stands for a row that is not there. The lists are never changed once they are
// here, so a row may be copied to and read by any thread; copying counts references and copies no field.
struct FeedRow {
    FeedRow() = default;
    // A row without overrides, as all rows of this system are.
    explicit FeedRow(VX::ParamListHolder row) : base(static_cast<VX::ParamListHolder&&>(row)) {}

    bool Has(const char* field) const;
    // Never null: a missing text reads as the empty text. Lives as long as the row.
    const char* Text(const char* field) const;
    // 0 when the field is missing.
    i32 Number(const char* field) const;

    VX::ParamListHolder overrides;
    VX::ParamListHolder base;
    u8 flag = 0;  // carried along, always 0 here

private:
    HVXPARAMLIST Holding(const char* field) const;
};

}  // namespace Orv

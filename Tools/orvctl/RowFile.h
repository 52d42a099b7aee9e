// The file of rows that `export` writes and `apply` reads:
//
//     {
//       "feeds": [{"pipe": "hold", "folder": "jazz", "type": "sorted"}],
//       "announcements": [{"name": "hello", "kind": "over", "file": "/srv/hello.wav"}],
//       "parameters": [{"name": "SYSTEMLOGGINGLEVEL", "value": "2"}],
//       "remove": {"feeds": ["old"], "announcements": [], "parameters": []}
//     }
//
// A row states its whole content: a column that is not named becomes absent. Rows that are not named stay as they are.
// What stands under "remove" goes; what is not there is no fault, so that a file can be applied again.
#pragma once

#include <string>
#include <vector>

#include "ConfigService/Change.h"
#include "Tools/orvctl/Columns.h"

namespace Orv {

// The changes that a file asks for, removals first. Throws ToolError, with the place in the file, for what cannot be
// read.
std::vector<Change> ParseRowFile(const std::string& text);

// One section of an export.
Json RowsToJson(const TableWords& words, const std::vector<Row>& rows, bool withId);

}  // namespace Orv

// The vocabulary of the Configuration service: the tables and columns that this system reads, and the words of the
// requests and events. A row has whatever keys the service sent; a column's type is the one that its reader asks for.
#pragma once

namespace ConfigConnection {

namespace Tables {
inline constexpr char ANNOUNCEMENT[] = "ANNOUNCEMENT";
inline constexpr char AUDIOFEED[] = "AUDIOFEED";
inline constexpr char AUDIOFEEDCONTENT[] = "AUDIOFEEDCONTENT";  // subscribed; no column of it is read
inline constexpr char PARAMETER[] = "PARAMETER";
}  // namespace Tables

namespace Columns {

// ANNOUNCEMENT
inline constexpr char idannouncement[] = "idannouncement";  // its presence marks a real row
inline constexpr char thefile[] = "thefile";
inline constexpr char thename[] = "thename";  // also of AUDIOFEED; indexed in ANNOUNCEMENT
inline constexpr char thetype[] = "thetype";

// AUDIOFEED
inline constexpr char autogain[] = "autogain";
inline constexpr char feedtype[] = "feedtype";
inline constexpr char idaudiofeed[] = "idaudiofeed";                    // its presence marks a real row
inline constexpr char maxannouncementpause[] = "maxannouncementpause";  // seconds
inline constexpr char maxvolume[] = "maxvolume";                        // percent
inline constexpr char minannouncementpause[] = "minannouncementpause";  // seconds
inline constexpr char nonstop[] = "nonstop";
inline constexpr char pipename[] = "pipename";  // indexed
inline constexpr char playannouncements[] = "playannouncements";

// PARAMETER
inline constexpr char idparameter[] = "idparameter";  // its presence says that the parameter exists
inline constexpr char name[] = "name";                // indexed
inline constexpr char value[] = "value";

}  // namespace Columns

// Keys of requests, replies and events.
namespace Keys {
inline constexpr char OC[] = "OC";    // table
inline constexpr char OD[] = "OD";    // row, or array of rows
inline constexpr char ID[] = "ID";    // row id
inline constexpr char IDA[] = "IDA";  // row ids of an update event
inline constexpr char TO[] = "TO";    // kind of change
inline constexpr char TN[] = "TN";    // table in lower case
inline constexpr char FF[] = "FF";    // field
inline constexpr char FS[] = "FS";    // its value
inline constexpr char ids[] = "ids";
inline constexpr char TRN[] = "__TRN";  // transaction number
inline constexpr char UPDATED[] = "UPDATED";
inline constexpr char DELETED[] = "DELETED";
}  // namespace Keys

// The second argument of the change listener.
namespace Kinds {
inline constexpr char Inserted[] = "Inserted";
inline constexpr char Updated[] = "Updated";
inline constexpr char Deleted[] = "Deleted";
}  // namespace Kinds

// The first argument of the change listener for the marks of a transaction.
inline constexpr char TRANSACTION[] = "TRANSACTION";

// Signals: one for all transactions, and one per table with its name behind the word.
namespace Signals {
inline constexpr char BATCHUPDATE[] = "BATCHUPDATE";
inline constexpr char UPDOf[] = "UPDOf";
}  // namespace Signals

}  // namespace ConfigConnection

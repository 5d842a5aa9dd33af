// Journal entries as JSON. Nothing is masked.
#pragma once

#include <json/json.h>

#include "sim/journal.h"

namespace kivosim {

Json::Value JournalEntryToJson(const JournalEntry& entry);

}  // namespace kivosim

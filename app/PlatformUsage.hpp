// What this build of the program offers, as printed when it is started without a command it knows.
#pragma once

namespace brimlet {

const char* platformUsageText();

}  // namespace brimlet

// The table of commands.
#pragma once

#include "tools/kvlocal/Command.h"

#include <span>

namespace kvlocal {

Command statusCommand();
Command getCommand();
Command submitCommand();
Command formCommand();
Command imageCommand();
Command menuCommand();
Command renderCommand();
Command watchCommand();
Command eventsCommand();
Command csrCommand();

// All commands, in the order in which --help shows them.
std::span<const Command> commands();

}  // namespace kvlocal

#include "tools/kvlocal/Commands.h"

#include <array>

namespace kvlocal {

std::span<const Command> commands() {
  static const std::array kCommands{statusCommand(), getCommand(),  submitCommand(), formCommand(),
                                    imageCommand(),  menuCommand(), renderCommand(), watchCommand(),
                                    eventsCommand(), csrCommand()};
  return kCommands;
}

}  // namespace kvlocal

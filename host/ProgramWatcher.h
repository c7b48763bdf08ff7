// The name that some verbs know the console watcher by; goes when they have moved.
#pragma once

#include "Console.h"

using ProgramWatcher = ConsoleWatcher;

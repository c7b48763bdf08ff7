// The program's verbs. Each adds its subcommand and what it does when it is chosen.
#pragma once

namespace CLI {
class App;
}

void AddPhantomVerb(CLI::App& program);

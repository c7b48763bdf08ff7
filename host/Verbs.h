// The program's verbs. Each adds its subcommand and what it does when it is chosen.
#pragma once

namespace CLI {
class App;
}

void AddDumpVerb(CLI::App& program);
void AddExportVerb(CLI::App& program);
void AddInfoVerb(CLI::App& program);
void AddPhantomVerb(CLI::App& program);
void AddSliceVerb(CLI::App& program);

// The program's verbs. Each adds its subcommand and what it does when it is chosen.
#pragma once

namespace CLI {
class App;
}

void AddBatchVerb(CLI::App& program);
void AddCommitVerb(CLI::App& program);
void AddConvertVerb(CLI::App& program);
void AddDumpVerb(CLI::App& program);
void AddEchoVerb(CLI::App& program);
void AddExportVerb(CLI::App& program);
void AddFindVerb(CLI::App& program);
void AddGetVerb(CLI::App& program);
void AddInfoVerb(CLI::App& program);
void AddMediaVerb(CLI::App& program);
void AddMoveVerb(CLI::App& program);
void AddPhantomVerb(CLI::App& program);
void AddReceiveVerb(CLI::App& program);
void AddSendVerb(CLI::App& program);
void AddSliceVerb(CLI::App& program);

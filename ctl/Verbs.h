// The verbs of amporactl, each in the source of its name. Each function adds its verb to the program.
#pragma once

namespace ctl {

class CCommandLine;

void AddChart(CCommandLine& program);
void AddCheck(CCommandLine& program);
void AddCompletion(CCommandLine& program);
void AddConfig(CCommandLine& program);
void AddExit(CCommandLine& program);
void AddRestart(CCommandLine& program);
void AddShow(CCommandLine& program);
void AddStart(CCommandLine& program);
void AddStatus(CCommandLine& program);
void AddTrace(CCommandLine& program);
void AddUpdate(CCommandLine& program);
void AddWatch(CCommandLine& program);

} // namespace ctl

// The trace lines of the program's life, at the level of messages, as a test writes down what it expects.
#pragma once

#include "testing/system/Rig.h"

#include <map>
#include <string>
#include <vector>

namespace system_test {

using Lines = std::vector<testing_support::TraceLine>;

Lines operator+(Lines first, const Lines& second);

// The lines of a copy's first thread, which is the application's, and those of all others, its workers: one worker
// after the other.
Lines MainLines(const CopyOutput& pass);
Lines WorkerLines(const CopyOutput& pass);

// Those without "Enter" and "Leave", without those about single XML nodes, and without the removal of records, whose
// number depends on the time of day.
Lines Steps(const Lines& lines);
// Those of application, dialog, thread, timer and schedule: without what a pass says of companies and reports.
Lines Life(const Lines& lines);

// Settings that leave nothing of an interval to chance.
inline const std::map<std::string, int> kFixedInterval = {{"Interval", 30}, {"IntervalMin", 0}, {"IntervalMax", 0}};

// --- The application's thread.

Lines ProgramStart();
Lines ProgramEnd();
// A line of a handler of the dialog: "OnPowerBroadcast" or "OnSessionChange".
Lines DialogSays(const std::string& handler, const std::string& message);
Lines AlreadyStarted();

// --- The worker.

// What follows the first pass, or comes first when there is none.
Lines TimerMade();
// The base-time timer, or why there is none.
Lines BaseTimeArmed(int fixedClock, int randomMinutes);
Lines BaseTimeOver(int fixedClock);
// The interval timer, with bounds that are equal.
Lines IntervalArmed(int interval = 30, int random = 0);
// The first pass, and a later one, without what they say of companies and reports.
Lines FirstPass();
Lines LaterPass();
Lines UpdatingIsOff();
// The wait ends: by the timer, or by the event.
Lines TimerDue();
Lines WokenUp();
// The worker ends after its wait.
Lines WorkerEnd();

} // namespace system_test

#include "platform/Terminal.h"

#include "platform/sim/MachineState.h"

namespace platform {

CTerminal::CTerminal()
    : m_takesSequences(sim::Machine().terminalColumns > 0), m_allowsColour(sim::Machine().terminalAllowsColour)
{
}

CTerminal::~CTerminal() = default;

int CTerminal::Columns() const { return sim::Machine().terminalColumns; }

bool CTerminal::AllowsColour() const { return m_allowsColour; }

bool CTerminal::ShowsUnicode() const { return sim::Machine().terminalShowsUnicode; }

} // namespace platform

// The exchanges between two cabled panels: the panel under test asks, its peer in slave mode
// answers. Fixed texts of 19 characters on every port; the serial answers have "OK" where the
// requests have their line end.
#pragma once

// Each asks the peer and returns whether it answered. They block: the serial ones for 2 s and more,
// so that the peer's poll comes round, the USB ones for 600 ms at most.
bool askCom1Rs232();
bool askCom1Rs485();
bool askCom2Rs485();
bool askCom3Rs485(); // for boards with a third port; no cycle asks for it
bool askUsbHost();
bool askUsbDevice();

// One poll of the slave: answers what has come in on any port.
void answerPeer();

// The slave's side of askCom3Rs485(), which the poll leaves out.
void answerCom3Rs485();

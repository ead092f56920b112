#pragma once
// The library-wide byte-order switch. When it is on, integers and floats that
// arrive in structures and table lines are taken as big-endian and reversed
// where they are read. Nothing in the batch server turns it on; it stays off.

// Nonzero while the switch is on.
int GetRfcByteOrderSwitch();
void SetRfcByteOrderSwitch(int on);

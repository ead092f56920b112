#pragma once
// Texts that come from outside the class library (an exception name the SAP
// system returned) are thrown as const char*. The library's buffer behind such
// a name is reused by the next call on the connection, and the thrower's stack
// is gone once the catcher runs, so the text is copied into a per-thread
// buffer first. A small ring of buffers keeps a text valid while its catcher
// throws a second one.

// A copy of `text` (null counts as the empty text) that stays valid on this
// thread until seven more texts have been kept.
const char* KeepThrownText(const char* text);

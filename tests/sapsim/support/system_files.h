#pragma once
// System files for tests.

#include <string>

namespace sapsim::testing {

// A small system: DEV, logon 100/BATCH/secret, group PUBLIC, and the
// structure and table ZORDERS (IDENT C10, QTY N6, PRICE P 6.2).
inline std::string SmallSystem() {
  return R"({
    "system_id": "DEV", "release": "46C", "kernel_release": "46D",
    "host": "simhost",
    "logon": [{"client": "100", "user": "BATCH", "password": "secret"}],
    "groups": ["PUBLIC", "SPACE"],
    "structures": {
      "ZORDERS": [
        {"name": "IDENT", "type": "C", "length": 10},
        {"name": "QTY", "type": "N", "length": 6},
        {"name": "PRICE", "type": "P", "length": 6, "decimals": 2}
      ],
      "ZBATCH_LINE": [
        {"name": "NAME", "type": "C", "length": 12},
        {"name": "COUNT", "type": "I"},
        {"name": "AMOUNT", "type": "P", "length": 5, "decimals": 2},
        {"name": "WHEN", "type": "D"}
      ]
    },
    "tables": {
      "ZORDERS": [
        {"IDENT": "A-1", "QTY": "5", "PRICE": "12.50"},
        {"IDENT": "B-2", "QTY": "000017", "PRICE": "-3.10"},
        {"IDENT": "C-3", "QTY": "0", "PRICE": "0"}
      ]
    }
  })";
}

}  // namespace sapsim::testing

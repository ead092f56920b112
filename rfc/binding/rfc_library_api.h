/*
 * The SAP RFC library as this system sees it: the records that cross the
 * library's boundary, its return codes, and its 24 entry points.
 *
 * The batch server never links the library; it loads it at run time and reaches
 * every entry point through the forwarding functions of rfc_binding.h. A library
 * that implements this interface (our stand-in librfcsim.so does) defines the
 * entry points with C linkage after defining RFC_LIBRARY_IMPLEMENTATION, which
 * makes this header declare them.
 *
 * Records the library reads or fills keep the layout described with them;
 * fields that hold a pointer are pointer-sized, integers are 32 bits.
 */
#ifndef RFC_BINDING_RFC_LIBRARY_API_H
#define RFC_BINDING_RFC_LIBRARY_API_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Handles and codes --------------------------------------------------- */

/* A connection of the library; 0 means none. */
typedef uint32_t ConnectionHandle;

/* An internal table of the library (a list of fixed-length lines); null means
 * none. Handles are never reused, so a stale one is recognised as such. */
typedef struct RfcInternalTable* TableHandle;

/* The handle of a structure installed with RfcInstallStructure. Installed
 * handles never collide with the type codes 0..10, with 0 or with -1. */
typedef int32_t RfcTypeHandle;

/* Return codes. */
enum {
  RFC_OK = 0,              /* success */
  RFC_FAILURE = 1,         /* failure; RfcLastError tells */
  RFC_EXCEPTION = 2,       /* the partner raised an exception (its name is returned) */
  RFC_SYS_EXCEPTION = 3,   /* system exception */
  RFC_CLOSED = 6,          /* the connection is closed */
  RFC_NOTHING_WAITING = 7  /* RfcListen: no call is waiting */
};

/* RFC type codes of values, fields and parameters. */
enum {
  RFCTYPE_CHAR = 0,
  RFCTYPE_DATE = 1,
  RFCTYPE_BCD = 2,
  RFCTYPE_TIME = 3,
  RFCTYPE_BYTE = 4,
  RFCTYPE_ITAB = 5,
  RFCTYPE_NUM = 6,
  RFCTYPE_FLOAT = 7,
  RFCTYPE_INT = 8,
  RFCTYPE_INT2 = 9,
  RFCTYPE_INT1 = 10
};

/* The dispatcher name under which a server installs its catch-all function. */
#define RFC_GLOBAL_SERVER_NAME "%%USER_GLOBAL_SERVER"

/* Size of the buffer RfcGetName writes the called function's name into
 * (31 characters and the terminator at most). */
#define RFC_FUNCTION_NAME_SIZE 32

/* The extended error group that means: the gateway cancelled this registered
 * server (RfcCancelRegisterServer), so it should stop re-accepting. */
#define RFC_ERROR_GROUP_CANCELLED 109

/* ---- Open options -------------------------------------------------------- */

/* Connection modes of OpenOptions.mode. */
enum {
  RFC_MODE_APPLICATION_SERVER = 0, /* option block: ApplicationServerOptions */
  RFC_MODE_GATEWAY = 1,            /* option block: GatewayLogonOptions */
  RFC_MODE_NONE = 2,               /* nothing is opened */
  RFC_MODE_SERVER_LOGON = 3,       /* option block: ServerLogonOptions */
  RFC_MODE_DESTINATION = 4         /* no option block: the destination alone */
};

typedef struct {
  const char* destination;
  int32_t mode;
  void* options; /* the mode's option block, or null */
  const char* client;
  const char* user;
  const char* password;
  const char* language;
  int32_t trace;
} OpenOptions;

/* Mode 0: an application server that is reached through a gateway. */
typedef struct {
  const char* host;
  int32_t system_number;
  const char* gateway_host;
  const char* gateway_service;
} ApplicationServerOptions;

/* Mode 1: the gateway alone. */
typedef struct {
  const char* gateway_host;
  const char* gateway_service;
} GatewayLogonOptions;

/* Mode 3: one application server (load_balancing 0) or a logon group of a
 * message server (load_balancing 1). */
typedef struct {
  const char* host;
  int32_t system_number;
  int32_t load_balancing;
  const char* message_server_host;
  const char* system_name;
  const char* group;
  int32_t mode3_flag;
  int32_t reserved; /* always 0 */
} ServerLogonOptions;

/* ---- Connection attributes ----------------------------------------------- */

#define RFC_ATTRIBUTES_SIZE 556
#define RFC_ATTRIBUTES_PARTNER_RELEASE_OFFSET 320
#define RFC_ATTRIBUTES_KERNEL_RELEASE_OFFSET 325

typedef struct {
  char own_host[100];
  char partner_host[100];
  char system_id[9];
  char client[4];
  char user[13];
  char language[3];
  char own_codepage[5];
  char partner_codepage[5];
  char partner_type;     /* '3' an application server, 'E' an external program */
  char rfc_role;         /* 'C' client, 'S' server */
  char reserved1[79];
  char partner_release[5]; /* 4 characters and the terminator; may be empty */
  char kernel_release[5];  /* 4 characters and the terminator */
  char own_release[5];
  char reserved2[221];
} ConnectionAttributes;

/* ---- Errors -------------------------------------------------------------- */

typedef struct {
  char key[33];
  char status[128];
  char message[256];
  char intstat[128];
} RFC_ERROR_INFO;

typedef struct {
  int32_t group;
  char key[33];
  char message[512];
} ErrorInfoEx;

/* ---- Parameters, tables and types ---------------------------------------- */

/* One import or export value; an array of them ends with an entry whose name
 * is null. `type` is an RFC type code or an installed structure's handle. */
typedef struct {
  const void* name;
  uint32_t name_length;
  int32_t type;
  uint32_t length;
  void* address;
} RfcParameterEntry;

/* One table; an array of them ends with an entry whose name is null. On
 * receiving, a null `handle` makes the library create the table and store its
 * handle here; a live handle is emptied and filled. */
typedef struct {
  const void* name;
  uint32_t name_length;
  int32_t type;
  uint32_t line_length;
  TableHandle handle;
  int32_t mode;
  int32_t new_table;
} RfcTableEntry;

/* One field of a structure handed to RfcInstallStructure. */
typedef struct {
  const char* name;
  int32_t type;
  int32_t length;
  int32_t decimals;
  int32_t offset;
} RfcTypeElement;

/* A server function the library calls for an incoming call. */
typedef int (*RfcServerFunction)(ConnectionHandle handle);

/* ---- The 24 entry points ------------------------------------------------- */

typedef ConnectionHandle (*RfcOpen_t)(OpenOptions* options);
typedef ConnectionHandle (*RfcAccept_t)(char** argv);
typedef void (*RfcClose_t)(ConnectionHandle handle);
typedef int (*RfcCall_t)(ConnectionHandle handle, const char* function,
                         RfcParameterEntry* imports, RfcTableEntry* tables);
typedef int (*RfcReceive_t)(ConnectionHandle handle, RfcParameterEntry* exports,
                            RfcTableEntry* tables, char** exception);
typedef int (*RfcInstallStructure_t)(const char* name, RfcTypeElement* elements,
                                     unsigned count, RfcTypeHandle* type_handle);
typedef int (*RfcInstallFunction_t)(const char* name, RfcServerFunction function,
                                    const char* documentation);
typedef int (*RfcListen_t)(ConnectionHandle handle);
typedef int (*RfcDispatch_t)(ConnectionHandle handle);
typedef int (*RfcGetName_t)(ConnectionHandle handle, char* name);
typedef int (*RfcGetData_t)(ConnectionHandle handle, RfcParameterEntry* imports,
                            RfcTableEntry* tables);
typedef int (*RfcSendData_t)(ConnectionHandle handle, RfcParameterEntry* exports,
                             RfcTableEntry* tables);
typedef int (*RfcRaise_t)(ConnectionHandle handle, const char* exception);
typedef int (*RfcGetAttributes_t)(ConnectionHandle handle, ConnectionAttributes* attributes);
typedef int (*RfcLastError_t)(RFC_ERROR_INFO* error);
typedef int (*RfcLastErrorEx_t)(ErrorInfoEx* error);
typedef TableHandle (*ItCreate_t)(const char* name, unsigned line_length, unsigned occurs,
                                  unsigned memory);
typedef int (*ItFree_t)(TableHandle table);
typedef int (*ItDelete_t)(TableHandle table);
typedef unsigned (*ItFill_t)(TableHandle table);
typedef void* (*ItGetLine_t)(TableHandle table, unsigned line);
typedef void* (*ItGupLine_t)(TableHandle table, unsigned line);
typedef int (*RfcCheckRegisterServer_t)(const char* program_id, const char* gateway_host,
                                        const char* gateway_service, int* total,
                                        int* initialising, int* ready, int* busy,
                                        ErrorInfoEx* error);
typedef int (*RfcCancelRegisterServer_t)(const char* program_id, const char* gateway_host,
                                         const char* gateway_service, int* total,
                                         int* cancelled, ErrorInfoEx* error);

#ifdef RFC_LIBRARY_IMPLEMENTATION
/* The build names the export attribute of its system's libraries. */
#ifndef RFC_LIBRARY_EXPORT
#define RFC_LIBRARY_EXPORT __attribute__((visibility("default")))
#endif
RFC_LIBRARY_EXPORT ConnectionHandle RfcOpen(OpenOptions* options);
RFC_LIBRARY_EXPORT ConnectionHandle RfcAccept(char** argv);
RFC_LIBRARY_EXPORT void RfcClose(ConnectionHandle handle);
RFC_LIBRARY_EXPORT int RfcCall(ConnectionHandle handle, const char* function,
                               RfcParameterEntry* imports, RfcTableEntry* tables);
RFC_LIBRARY_EXPORT int RfcReceive(ConnectionHandle handle, RfcParameterEntry* exports,
                                  RfcTableEntry* tables, char** exception);
RFC_LIBRARY_EXPORT int RfcInstallStructure(const char* name, RfcTypeElement* elements,
                                           unsigned count, RfcTypeHandle* type_handle);
RFC_LIBRARY_EXPORT int RfcInstallFunction(const char* name, RfcServerFunction function,
                                          const char* documentation);
RFC_LIBRARY_EXPORT int RfcListen(ConnectionHandle handle);
RFC_LIBRARY_EXPORT int RfcDispatch(ConnectionHandle handle);
RFC_LIBRARY_EXPORT int RfcGetName(ConnectionHandle handle, char* name);
RFC_LIBRARY_EXPORT int RfcGetData(ConnectionHandle handle, RfcParameterEntry* imports,
                                  RfcTableEntry* tables);
RFC_LIBRARY_EXPORT int RfcSendData(ConnectionHandle handle, RfcParameterEntry* exports,
                                   RfcTableEntry* tables);
RFC_LIBRARY_EXPORT int RfcRaise(ConnectionHandle handle, const char* exception);
RFC_LIBRARY_EXPORT int RfcGetAttributes(ConnectionHandle handle,
                                        ConnectionAttributes* attributes);
RFC_LIBRARY_EXPORT int RfcLastError(RFC_ERROR_INFO* error);
RFC_LIBRARY_EXPORT int RfcLastErrorEx(ErrorInfoEx* error);
RFC_LIBRARY_EXPORT TableHandle ItCreate(const char* name, unsigned line_length,
                                        unsigned occurs, unsigned memory);
RFC_LIBRARY_EXPORT int ItFree(TableHandle table);
RFC_LIBRARY_EXPORT int ItDelete(TableHandle table);
RFC_LIBRARY_EXPORT unsigned ItFill(TableHandle table);
RFC_LIBRARY_EXPORT void* ItGetLine(TableHandle table, unsigned line);
RFC_LIBRARY_EXPORT void* ItGupLine(TableHandle table, unsigned line);
RFC_LIBRARY_EXPORT int RfcCheckRegisterServer(const char* program_id, const char* gateway_host,
                                              const char* gateway_service, int* total,
                                              int* initialising, int* ready, int* busy,
                                              ErrorInfoEx* error);
RFC_LIBRARY_EXPORT int RfcCancelRegisterServer(const char* program_id,
                                               const char* gateway_host,
                                               const char* gateway_service, int* total,
                                               int* cancelled, ErrorInfoEx* error);
#endif /* RFC_LIBRARY_IMPLEMENTATION */

#ifdef __cplusplus
} /* extern "C" */

/* The layout the library and the class library agree on. */
static_assert(sizeof(RFC_ERROR_INFO) == 33 + 128 + 256 + 128, "RFC_ERROR_INFO layout");
static_assert(offsetof(RFC_ERROR_INFO, status) == 33, "RFC_ERROR_INFO layout");
static_assert(offsetof(RFC_ERROR_INFO, message) == 33 + 128, "RFC_ERROR_INFO layout");
static_assert(offsetof(RFC_ERROR_INFO, intstat) == 33 + 128 + 256, "RFC_ERROR_INFO layout");
static_assert(offsetof(ErrorInfoEx, key) == 4, "ErrorInfoEx layout");
static_assert(offsetof(ErrorInfoEx, message) == 4 + 33, "ErrorInfoEx layout");
static_assert(sizeof(ConnectionAttributes) == RFC_ATTRIBUTES_SIZE, "ConnectionAttributes size");
static_assert(offsetof(ConnectionAttributes, partner_release) ==
                  RFC_ATTRIBUTES_PARTNER_RELEASE_OFFSET,
              "partner release offset");
static_assert(offsetof(ConnectionAttributes, kernel_release) ==
                  RFC_ATTRIBUTES_KERNEL_RELEASE_OFFSET,
              "kernel release offset");
static_assert(sizeof(void*) == 8 && sizeof(OpenOptions) == 8 * 8, "OpenOptions: eight words");
static_assert(offsetof(OpenOptions, trace) == 7 * 8, "OpenOptions layout");
static_assert(sizeof(ServerLogonOptions) == 6 * 8, "ServerLogonOptions layout");
static_assert(sizeof(GatewayLogonOptions) == 2 * 8, "GatewayLogonOptions layout");
static_assert(sizeof(ConnectionHandle) == 4, "connection handles are 32-bit");
#endif

#endif /* RFC_BINDING_RFC_LIBRARY_API_H */

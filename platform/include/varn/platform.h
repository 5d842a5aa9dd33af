/* The host platform: every service of the device that libvarnkivo calls and does not contain. A device maker replaces
 * libvarnplatform.so.1 by a library of its own that keeps these contracts; nothing else has to be rebuilt.
 * This header compiles as C99 and as C++. The scheduler's class is in <varn/crond.h>. */
#ifndef VARN_PLATFORM_H
#define VARN_PLATFORM_H

#include <stdio.h>
#include <sys/types.h>

#if defined(__GNUC__)
#define VARN_PLATFORM_API __attribute__((visibility("default")))
#else
#define VARN_PLATFORM_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* For all calls:
 *  - "fails" means: a negative result (or a null pointer), and an error code recorded for VLIBCErrGet together with the
 *    file and line that raised it. The record says something only right after a call that failed.
 *  - Texts are NUL-terminated UTF-8. `size` counts bytes including the NUL; a text that does not fit is cut to
 *    size - 1 bytes and terminated. A buffer passed without a size has the size stated at the call.
 *  - A failing call leaves an output buffer as an empty text, if it was given one.
 *  - Null where no null is mentioned: fails with VLIB_ERR_BAD_PARAMETER.
 *  - Every call may be used by several threads at once; one hash, list, buffer or handle by one thread at a time. */

/* ------------------------------------------------------------------ errors */

/** What VLIBCErrGet gives. Other platform libraries may record other numbers; callers only print them. */
enum VLIBErrorCode {
  VLIB_ERR_NONE = 0,
  VLIB_ERR_BAD_PARAMETER = 0x0701, /**< a null pointer, a size below 1, a name or format that is not allowed */
  VLIB_ERR_NO_MEMORY = 0x0702,
  VLIB_ERR_NOT_FOUND = 0x0703, /**< the file or the thing asked for does not exist */
  VLIB_ERR_ACCESS = 0x0704,    /**< the caller's ids do not allow it */
  VLIB_ERR_OPEN = 0x0705,      /**< a file or directory could not be opened or created for another reason */
  VLIB_ERR_READ = 0x0706,
  VLIB_ERR_WRITE = 0x0707,
  VLIB_ERR_NOT_REGULAR = 0x0708, /**< a link, directory, fifo or device where a regular file is wanted */
  VLIB_ERR_TOO_LARGE = 0x0709,   /**< a file, line or buffer beyond its bound, or a result that must not be cut */
  VLIB_ERR_LOCK_HELD = 0x070A,   /**< the lock is held by somebody else */
  VLIB_ERR_LOCK = 0x070B,        /**< locking or unlocking failed otherwise */
  VLIB_ERR_NO_SERIAL = 0x070C,
  VLIB_ERR_NO_INTERFACE = 0x070D,
  VLIB_ERR_NO_ZONE = 0x070E,
  VLIB_ERR_FORK = 0x070F,
  VLIB_ERR_EXEC = 0x0710, /**< the program could not be started, or was ended by a signal */
  VLIB_ERR_TIMEOUT = 0x0711,
  VLIB_ERR_PLUGIN = 0x0712,   /**< a plug-in ended with a status other than 0 */
  VLIB_ERR_SCHEDULE = 0x0713, /**< a job or schedule that is not allowed */
  VLIB_ERR_CRYPTO = 0x0714,   /**< the random source or a digest failed */
  VLIB_ERR_SYSTEM = 0x0715
};

/** The last platform error of this thread, 0 = none. */
VARN_PLATFORM_API unsigned int VLIBCErrGet(void);

/** Source file and line that raised it, "" and 0 before the first error; never null, valid for the program's life. */
VARN_PLATFORM_API const char* VLIBCErrorGetFile(void);
VARN_PLATFORM_API int VLIBCErrorGetLine(void);

/* --------------------------------------------------- strings, hashes, lists */

typedef struct VLIBSzHash VLIBSzHash; /**< string-to-string map, enumerated in the order of insertion */
typedef struct VLIBSzList VLIBSzList; /**< growing list of strings */

/** A new empty hash, owned by the caller until VLIBCSzHashFree; it grows beyond `capacity`. Null: no memory. */
VARN_PLATFORM_API VLIBSzHash* VLIBCSzHashAlloc(int capacity);
/** Accepts null. */
VARN_PLATFORM_API void VLIBCSzHashFree(VLIBSzHash* hash);
/** Adds or replaces a copy of `value`; a replaced key keeps its place. 0 or fails. */
VARN_PLATFORM_API int VLIBCSzHashSetValue(VLIBSzHash* hash, const char* key, const char* value);
/** Owned by the hash, valid until the key is set again or the hash is freed. Null, without an error: no such key. */
VARN_PLATFORM_API const char* VLIBCSzHashGetValue(const VLIBSzHash* hash, const char* key);
/** Appends every key to `keys`. Returns the number of keys, or fails. */
VARN_PLATFORM_API int VLIBCSzHashEnumKey(const VLIBSzHash* hash, VLIBSzList* keys);

/** A new empty list, owned by the caller until VLIBCSzListFree. Null: no memory. */
VARN_PLATFORM_API VLIBSzList* VLIBCSzListAlloc(int capacity);
/** Appends a copy of `text`. 0 or fails. */
VARN_PLATFORM_API int VLIBCSzListPush(VLIBSzList* list, const char* text);
/** Owned by the list, valid until it is freed. Null, without an error: `index` is negative or past the end. */
VARN_PLATFORM_API const char* VLIBCSzListGet(const VLIBSzList* list, int index);
/** Number of strings, 0 for null. */
VARN_PLATFORM_API int VLIBCSzListCount(const VLIBSzList* list);
/** Accepts null. */
VARN_PLATFORM_API void VLIBCSzListFree(VLIBSzList* list);

/** Appends `text` to the malloc'ed text `*buffer` of `*size` bytes and enlarges both where needed; a null `*buffer` is
 * an empty one. The caller frees the buffer. 0, or fails with buffer and size unchanged. */
VARN_PLATFORM_API int VLIBCStrCat(char** buffer, int* size, const char* text);
/** Trims white space at both ends in place; returns `text`, also when it is null. */
VARN_PLATFORM_API char* VLIBCStrTrimSpace(char* text);

/* ------------------------------------------------------------ key/value files
 * Lines key="value" or key=value; lines that start with '#' are comments. Of a key that occurs twice the first counts.
 * In a value \" \\ \$ \` \n \r \t and \xNN stand for the character; any other backslash stands for itself. */

/** Bytes stored in `value` without the NUL, 0 where the key is absent or empty. Fails where the file cannot be read. */
VARN_PLATFORM_API int VLIBCFileGetKeyValue(const char* path, const char* key, char* value, int size);
/** Replaces the key's line or appends one, printed with `format`, which takes key and value as "%s" in this order and
 * ends with a newline; null means "%s=\"%s\"\n". Creates the file with mode 0600, whatever the umask; keeps mode,
 * owner, and every other line of an existing one. Atomic, and serialised with other writers of the file through the
 * lock file ".NAME.lock" beside it. Any value but one with a NUL reads back unchanged. 0 or fails. */
VARN_PLATFORM_API int VLIBCFileSetKeyValue(const char* path, const char* key, const char* value, const char* format);
/** 1 where the stored value equals `value` exactly, 0 where it does not or is absent. Fails where unreadable. */
VARN_PLATFORM_API int VLIBCFileCheckKeyValue(const char* path, const char* key, const char* value);
/** Puts every pair of the file into the hash, values as VLIBCFileGetKeyValue gives them; `separator` null means "=".
 * Returns the number of pairs, or fails. */
VARN_PLATFORM_API int VLIBCFileGetKeys(const char* path, VLIBSzHash* values, const char* separator);

/* -------------------------------------------------------------------- locks */

/** One attempt at a lock on an existing regular file, never waits and never creates the file. `exclusive` 0 = shared.
 * 0 with `*handle` 0 or more, or fails with it -1. The kernel releases it when the holder dies; two handles exclude
 * each other inside one process too. A program that the holder starts does not inherit it. */
VARN_PLATFORM_API int VLIBCFileLockByFile(const char* path, int exclusive, int* handle);
/** 0 or fails. */
VARN_PLATFORM_API int VLIBCFileUnlockByFile(int handle);

/* ------------------------------------------------------------- device facts */

/** The serial in use and the factory serial. 0 or fails. */
VARN_PLATFORM_API int VLIBGetSerialNumber(char* serial, int size);
VARN_PLATFORM_API int VLIBGetOriginalSerialNumber(char* serial, int size);
/** MAC of the first real interface, as "00:11:22:aa:bb:cc"; callers pass 24 bytes. 0 or fails. */
VARN_PLATFORM_API int VARNLuinfoCloudServiceGetMacAddress(char* mac, int size);
/** User-agent text for a product key such as "kivo", printable ASCII. 0 or fails. */
VARN_PLATFORM_API int VLIBLuinfoUserAgentGet(const char* product, char* agent, int size);

/* ------------------------------------------------------------ cloud service */

enum { VARN_CLOUD_API_KEY_SIZE = 1024 }; /**< bytes that an API key buffer must have */

/** The device's API key into `key` (at least 1024 bytes). Where there is none: `create` 1 makes one, 0 fails. 0 or
 * fails. Needs effective uid 0 or that of the account service. */
VARN_PLATFORM_API int VARNCloudServiceGetApiKey(char* key, int create);
/** Replaces the key by a new one and returns it likewise (at least 1024 bytes). 0 or fails. */
VARN_PLATFORM_API int VARNCloudServiceRegisterApiKey(char* key);
/** 2 = handle an expired API key: the next VARNCloudServiceGetApiKey(key, 1) gives a new one. 0 or fails. */
VARN_PLATFORM_API int VARNCloudServiceActionHandler(int action);
/** This thread's last cloud-service error, 0..9: 0 none, 1 network fault, 2 other fault, 9 no serial number. The four
 * other calls of this group set it, to 0 where they succeed. */
VARN_PLATFORM_API int VARNCloudServiceGetErrorCode(void);
/** Device token of a serial for registration: 32 lower-case hexadecimal characters, so `size` 33 or more. 0 or
 * fails. */
VARN_PLATFORM_API int VARNCloudServiceLutokenGenerateToken(const char* serial, char* token, int size);

/* ---------------------------------------------------------------- time zone */

/** The host's zone id. `*needed` (may be null) becomes the bytes it takes with the NUL, 0 where there is no zone. 0, or
 * fails, also where it does not fit: a cut id would name no zone. */
VARN_PLATFORM_API int VARNZoneGet(char* zone, int size, int* needed);
/** Number of facts stored in `info`, among them "nameInTZDB", the IANA name; or fails. */
VARN_PLATFORM_API int VARNZoneGetInfo(const char* zone, VLIBSzHash* info);

/* ------------------------------------------------ notifications and event log */

/** Sends the notification `tag` with its substitutions (`params` may be null). 0 or fails. */
VARN_PLATFORM_API int VARNSysNotifySendNotifiction(const char* tag, const VLIBSzHash* params);
/** Writes an event-log entry; `level` 1 = information, 2 = warning, 3 = error; a null text counts as empty. 0 or
 * fails. */
VARN_PLATFORM_API int VARNLogSet1(int type, int level, unsigned int event, const char* a, const char* b, const char* c,
                                  const char* d);

/* ---------------------------------------------------------------- scheduler */

/** Removes every scheduled job whose cmd_list joined by single blanks equals `command`. Number removed, or fails. */
VARN_PLATFORM_API int VARNScheduleRemove(const char* command);

/* -------------------------------------------------------------- plug-in kit */

typedef enum _tag_sdk_plugin_action_ {
  VLIB_PLUGIN_ACTION_PRE = 4, /**< before the event */
  VLIB_PLUGIN_ACTION_POST = 5 /**< after it */
} _tag_sdk_plugin_action_;

typedef struct VLIBPlugin VLIBPlugin;

/** Opens a session for the plug-ins registered for product and event (such as "kivo" and "kivo/login"); none registered
 * is a session too. `flags` 0. 0, or fails with `*handle` null. The caller closes it with VLIBPluginExit. */
#ifdef __cplusplus
VARN_PLATFORM_API int VLIBPluginSDKInit(const char* product, const char* event, VLIBPlugin** handle, int flags = 0);
#else
VARN_PLATFORM_API int VLIBPluginSDKInit(const char* product, const char* event, VLIBPlugin** handle, int flags);
#endif
/** Runs them all and waits. 0, or fails where one of them failed; the others have run then too. */
VARN_PLATFORM_API int VLIBPluginAction(_tag_sdk_plugin_action_ action, VLIBPlugin* handle);
/** Accepts null. 0. */
VARN_PLATFORM_API int VLIBPluginExit(VLIBPlugin* handle);

/* ---------------------------------------------------------------- processes */

/** fork(2). -1 fails. */
VARN_PLATFORM_API pid_t VLIBCProcFork(void);
/** Runs `program` (a path) with the arguments after argv[0], ended by a null, and waits. Bit 0 of `flags`: the child's
 * real, effective and saved ids are raised to 0 first, unless it is the account service, which goes on as
 * it is where it may not; other bits are the device's own. The child inherits no
 * descriptor but 0, 1 and 2. Its exit status 0..255; fails where it could not be started or was ended by a signal. */
VARN_PLATFORM_API int VLIBCExecl(const char* program, int flags, const char* arg, ...);
/** A pipe from (`mode` "r") or to ("w") a program started likewise, without a shell. Null: not started. */
VARN_PLATFORM_API FILE* VLIBCPopen(const char* program, const char* mode, const char* arg, ...);
/** Closes the pipe and waits. The program's exit status 0..255, or fails as VLIBCExecl does. */
VARN_PLATFORM_API int VLIBCPclose(FILE* pipe);

/* --------------------------------------------------------------------- PKCE */

/** A new S256 pair: a verifier of 43 base64url characters from the system's random source, and its challenge, 43
 * likewise; both sizes are 44 or more. Nothing is stored. Length of the verifier (43), or fails. */
VARN_PLATFORM_API int varn_challenge_verifier_no_save(char* challenge, int challengeSize, char* verifier,
                                                      int verifierSize);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* VARN_PLATFORM_H */

// Exported functions and records of libvarnkivo.so.1.
// Unless a function says otherwise it returns 0 on success and -1 on failure, and leaves a KIVO_ERRCODE in the one
// last-error slot of the process (VARNKIVOErrGet). No exception leaves any of them. Calls are synchronous; each is safe
// on a thread of its own except for the slot and for the process-wide effective ids and umask, which some change
// briefly.
#ifndef VARNKIVO_VARNKIVO_H_
#define VARNKIVO_VARNKIVO_H_

#include <stdbool.h>
#include <stddef.h>

#define VARNKIVO_VERSION_MAJOR 1
#define VARNKIVO_VERSION_MINOR 0
#define VARNKIVO_VERSION_PATCH 0
#define VARNKIVO_VERSION "1.0.0"

#if defined(__GNUC__)
#define KIVO_API __attribute__((visibility("default")))
#else
#define KIVO_API
#endif

#ifdef __cplusplus
#define KIVO_INT_ENUM : int  // callers in C may hand over any value
#else
#define KIVO_INT_ENUM
#endif

/// libcurl's list of header lines; only named here.
struct curl_slist;
/// The platform's string-to-string map (varn/platform.h).
struct VLIBSzHash;

#ifdef __cplusplus
extern "C" {
#endif

/// What the last-error slot and KivoException carry. The numbers are the interface; those not listed never occur.
typedef enum KIVO_ERRCODE {
  KIVO_ERR_SUCCESS = 0,
  KIVO_ERR_BAD_PARAM = 1,            ///< a required argument is null or empty
  KIVO_ERR_BAD_JSON = 2,             ///< an answer or a file is not the JSON expected
  KIVO_ERR_NO_ACCOUNT = 3,           ///< nobody is signed in
  KIVO_ERR_SEND = 4,                 ///< request not built, not sent, or HTTP status not accepted
  KIVO_ERR_RESPONSE = 5,             ///< answer missing or without the expected fields
  KIVO_ERR_SYSTEM = 6,               ///< out of memory, or a platform call failed
  KIVO_ERR_PAYMENT_CONFIG = 7,       ///< the payment host could not be obtained
  KIVO_ERR_SERIAL = 8,               ///< serial number unreadable
  KIVO_ERR_AUTH = 14,                ///< authentication refused
  KIVO_ERR_NETWORK = 15,             ///< network failure reported by the account centre or the cloud service
  KIVO_ERR_ACCOUNT_IN_USE = 16,      ///< e-mail already registered
  KIVO_ERR_ACCOUNT_LIMIT = 17,       ///< this device has registered too many accounts
  KIVO_ERR_ACCOUNT_UNVERIFIED = 18,  ///< e-mail address not confirmed yet
  KIVO_ERR_CONFIG_WRITE = 19,        ///< account record could not be written
  KIVO_ERR_MAC = 20,                 ///< MAC address unreadable
  KIVO_ERR_TOKEN = 22,               ///< device token not generated, or a token file absent, incomplete or locked
  KIVO_ERR_SERVER_CONFIG = 23,       ///< server hosts unreadable
  KIVO_ERR_UNKNOWN = 24,             ///< an error string or cloud-service code without a mapping
  KIVO_ERR_ACCOUNT_NOT_FOUND = 25,   ///< account unknown to the account centre
  KIVO_ERR_APIKEY_NOT_FOUND = 26,    ///< the device's API key is unknown to the account centre
  KIVO_ERR_APIKEY_EXPIRED = 27,      ///< the device's API key has expired
  KIVO_ERR_INVALID_MACHINE = 28      ///< the account centre does not accept this device
} KIVO_ERRCODE;

/// One row of gErrorCodeMap: an error string of the account centre and the code it stands for.
struct _tag_kivo_error_code_row_ {
  const char* key;  ///< matched as a prefix; null in the last row
  int code;
};

/// The account centre's error strings in order of precedence; ends with {NULL, 24}.
extern KIVO_API const struct _tag_kivo_error_code_row_ gErrorCodeMap[];

/// The version of the library that is loaded, as VARNKIVO_VERSION gives the one compiled for: "major.minor.patch".
/// Never null, not to be freed; the slot is not touched.
KIVO_API const char* VARNKIVOVersionGet(void);

/// Stores `code` in the last-error slot and returns it.
KIVO_API int VARNKIVOErrSet(int code);
/// The last-error slot: one integer for the whole process, not per thread. Read it right after the failing call.
KIVO_API int VARNKIVOErrGet(void);
/// A short English message, never null, not to be freed. Codes without one of their own give "System error".
KIVO_API const char* GetKivoErrorMsg(int code);
/// Writes the message of `code` and a newline to standard error; nothing for 0.
KIVO_API void printErrCode(int code);
/// Code of an account-centre error string: first row whose key begins `error`, else (also for null) 24.
KIVO_API int GetErrorCodeFromAccountError(const char* error);
/// As GetErrorCodeFromAccountError, and stores the code in the slot.
KIVO_API int MapLibKivoCenterErrorCode(const char* error);
/// Code of the platform cloud service's last error; leaves the slot alone.
KIVO_API int GetErrorCodeFromCloudService(void);

/// A request to one of the hosts. Filled by the caller, who keeps owning everything in it.
struct _tag_libkivo_varn_request_ {
  const char* host;             ///< scheme and host without trailing slash; https only
  const char* path;             ///< appended after a "/"
  struct VLIBSzHash* params;    ///< name/value pairs, sent in enumeration order; may be null
  int method;                   ///< 1: GET, parameters in the URL; else POST, parameters in the body
  int quick;                    ///< non-zero: 2 attempts of 15 s; zero: 3 attempts of 120 s
  char account_id[4096];        ///< sent as "kivoID" unless empty
  char account_password[4096];  ///< sent as "kivoPW" unless empty
};

/// The answer to a request. `body` is the caller's: release it with VARNKIVOHttpsResponseFree.
struct _tag_libkivo_varn_response_ {
  int curl_code;     ///< last libcurl result, 0 when none failed
  long http_status;  ///< 0 when none was obtained
  char* body;        ///< white space trimmed at both ends; null when none
};

/// Sends `request` with the device's serial number and device token. Status 200 and 400 are successes with a body;
/// anything else is -1. `headers` are extra header lines, owned by the caller (may be null); an empty entry is appended
/// to a list given. Name-resolution failures and time-outs are tried again after a second. https only, at most 5
/// redirects, at most 16 MiB of body. Codes: 1 null argument, 6 out of memory, 4 everything else. The slot is not
/// reset.
KIVO_API int VARNKIVOHttpsRequestSendWithHeader(struct _tag_libkivo_varn_request_* request,
                                                struct _tag_libkivo_varn_response_* response,
                                                struct curl_slist* headers);
/// VARNKIVOHttpsRequestSendWithHeader without extra headers.
KIVO_API int VARNKIVOHttpsRequestSend(struct _tag_libkivo_varn_request_* request,
                                      struct _tag_libkivo_varn_response_* response);
/// Frees the body and zeroes body and status. Accepts null and a response already freed.
KIVO_API void VARNKIVOHttpsResponseFree(struct _tag_libkivo_varn_response_* response);
/// Writes the user-agent text into `size` bytes. Code 1 for a null buffer or size below 1; a platform that has no text
/// is only logged: the result is 0 and the buffer stays as it was.
KIVO_API int VARNKIVOUserAgentNameGet(char* buf, int size);

/// Fills `config`, 4096 bytes: payment host in the first 2048, account host in the second. Code 1 for null, else that
/// of the failure.
KIVO_API int VARNKIVOServerConfigGet(char* config);
/// Writes the payment host into `url`, 2048 bytes.
KIVO_API int VARNPaymentConfigGet(char* url);

/// Reads the device's serial number into `size` bytes (36 hold any). -1 when unreadable or when it does not begin with
/// an ASCII letter or digit; the slot is not touched.
KIVO_API int VARNKIVOGetSerialNumber(char* serial, size_t size);
/// Derives the device token from serial, account identifier and password (the last two may be null). `serial` is filled
/// when empty; `token` receives 32 lowercase hexadecimal digits and a NUL. The slot is touched by a null `token` only
/// (1).
KIVO_API int VARNKIVOGenerateToken(const char* accountId, const char* password, char* serial, size_t serialSize,
                                   char* token, size_t tokenSize);
/// Writes the MD5 digest of `text` as 32 lowercase hexadecimal digits and a NUL. `hex` must hold 33 bytes although
/// `size` is refused only below 32; `size` bytes are zeroed first. -1 for null or a short buffer; the slot is not
/// touched.
KIVO_API int KivoGetMd5String(const char* text, char* hex, int size);

/// The signed-in account as fixed-size texts. Other programs share this layout: order and sizes never change.
struct _tag_kivo_INFO_ {
  char email[4096];
  char password[4096];  ///< filled by the payment functions only
  char userId[4096];
  char authKey[4096];
  char name[1024];
  char country[256];
  char timezone[256];
  char notifyLanguage[256];
  char criticalVersionList[1024];
  char criticalVersionDomain[1024];
  int activated;
  int disabled;
  int enews;
  int criticalRelease;
  int enewsLocalPromotion;
  int lastQueryTime;  ///< seconds since the epoch
};

/// Creates an account at the account centre. It does not sign in: the person has to confirm the e-mail address first.
/// E-mail, password and full name are required; `country` may be null. Waits up to 3 attempts of 120 s. Codes: 1 null
/// argument, 4 not sent, 6 memory or time-zone facts, 8 serial, 22 device token, 23 hosts, 16 e-mail in use, 17 too
/// many accounts of this device, else the server's answer. An unreadable time zone is -1 with the slot at 0.
KIVO_API int VARNKIVOAccountRegister(const char* email, const char* password, const char* fullName,
                                     bool criticalRelease, bool enews, bool enewsLocalPromotion, const char* country);
/// Changes the signed-in account at the account centre. A null text or a negative number leaves that part as it is; 0
/// is false, a positive number true. `email` and `newPassword` are sent only together with `password`, the current one.
/// A new password is announced by the notification "KivoPasswordChanged", whose failure is only logged. The record
/// keeps the old profile until the next query. Codes: 3 nobody signed in, 4 not sent, 6 memory, 8 serial, 23 hosts,
/// else the server's answer.
KIVO_API int VARNKIVOAccountSetInfo(const char* fullName, const char* email, const char* password,
                                    const char* newPassword, const char* country, const char* notifyLanguage,
                                    const char* timeZone, int enews, int criticalRelease, int enewsLocalPromotion,
                                    const char* criticalVersionList);
/// The periodic report: tells the account centre that this device still exists. Does nothing and returns 0 where nobody
/// is signed in, or where "kivo_disable_report" in "/etc/varninfo.conf" is "yes". An accepted report registers the job
/// anew, at the schedule the server may have sent, and renews the access token when it is due; failures of these are
/// only logged. An answer of 14 (refused) or 25 (account deleted) notifies the administrators and signs the device out.
/// Codes: 2 reply not JSON, 4 not sent, 5 reply without "code", 6 memory or time-zone facts, 8 serial, 23 hosts, else
/// the server's answer. An unreadable time zone is -1 with the slot at 0.
KIVO_API int VARNKIVOReportInfo(void);

/// Copies the account record into `info`; a text longer than its field is cut. Code 1 null, 3 nobody signed in (no auth
/// key or no user id), 6 privileges; `info` is then untouched. Success sets the slot to 0.
KIVO_API int VARNKIVOAccountGet(struct _tag_kivo_INFO_* info);
/// Writes e-mail, auth key and user id, and the profile too when `lastQueryTime` is above 0. A failing write stops it;
/// what was written before stays. Code 1 null, 6 privileges, 19 not written. Success sets the slot to 0.
KIVO_API int VARNKIVOAccountSet(const struct _tag_kivo_INFO_* info);
/// Deletes the account record in a child process, firing the "kivo/logout" plug-ins before and after. Returns the
/// child's wait status, which is the same on success and failure, or -1 when no child could be started or waited for.
KIVO_API int VARNKIVOAccountRemove(void);

/// Copies e-mail and password for the shop ("kivoID" and "kivoPW" of the record) into `info` and leaves its other
/// fields alone. Code 1 null, 3 no record or one without these, 6 privileges; `info` is then untouched. Only whoever
/// may look into the private directory is told of a record there.
KIVO_API int VARNPaymentKivoAccountGet(struct _tag_kivo_INFO_* info);

/// Puts the periodic report into the host's cron service at the record's schedule; false when it was not saved.
KIVO_API bool VARNKIVOAccountRegisterCrond(void);
/// Takes the periodic report out of the host's cron service.
KIVO_API bool VARNKIVOAccountUnregisterCrond(void);

/// What the payment host can be asked.
typedef enum PAYMENT_ACTION KIVO_INT_ENUM {
  PAYMENT_ACTION_AUTH = 0,               ///< "auth": POST api/auth.php
  PAYMENT_ACTION_GET_ITEM_LIST = 1,      ///< "getItemList": GET api/getItemList.php
  PAYMENT_ACTION_GET_APP_ITEM_INFO = 2,  ///< "getAppItemInfo": GET api/package/record
  PAYMENT_ACTION_NONE = 3                ///< not an action
} PAYMENT_ACTION;

/// The action of that name, in any case; PAYMENT_ACTION_NONE for every other text and null.
KIVO_API PAYMENT_ACTION VARNPaymentParseAction(const char* name);
/// Signs in to the shop. The password leaves the device as its MD5 digest only. `language` may be null. `response` as
/// for VARNPaymentHTTPSSendWithJSONAndAccount. Code 1 for another null, 6 no digest, else as there.
KIVO_API int VARNPaymentHTTPSAuth(const char* account, const char* password, const char* language,
                                  struct _tag_libkivo_varn_response_* response);

#ifdef __cplusplus
}  // extern "C"
#endif

#ifdef __cplusplus
#include <json/forwards.h>

extern "C" {

/// Repairs the device's API key after the account centre answered with `error`. "apikey_not_found": registers a new
/// key, stores it as result["api_key"] and returns 0: send again with it. Everything else returns -1 with the error's
/// code in the slot, "apikey_expired" after asking the cloud service to act; null is code 1.
KIVO_API int VARNKIVOHandleApiKeyError(Json::Value& result, const char* error);

/// Signs the device in with e-mail and password, stores user id and auth key, registers the report job, queries the
/// profile and fires the "kivo/login" plug-ins. `verifyOnly` stops after the server's yes and changes nothing.
/// `response` receives the server's reply, also on failure as far as it was parsed. Codes: 1 null argument, 2 reply not
/// JSON, 4 not sent, 5 reply without "code", 6 memory or privileges, 8 serial, 19 record, 20 MAC, 23 hosts, else the
/// server's answer or the cloud service's. A failing plug-in kit is -1 with the slot as it was.
KIVO_API int VARNKIVOAccountLogin(const char* email, const char* password, Json::Value& response, bool verifyOnly);
/// Signs the device in with a user id and auth key already known, checked by querying the account.
/// WARNING: any failure of that query, a network failure included, deletes the account record, also an earlier
/// account's; and within 5 minutes of a query the check is answered from the record, so that a wrong key passes.
/// `response` receives "email", "auth_key" and "activated". Codes: 1 null, 6 privileges, 14 query failed, 19 record.
KIVO_API int VARNKIVOAccountLoginByKey(const char* userId, const char* authKey, Json::Value& response);
/// Signs the device in with an access token of the identity host; else as VARNKIVOAccountLogin. An unreadable time zone
/// is -1 with the slot at 0, time-zone information without an IANA name is code 6.
KIVO_API int VARNKIVOAccountOauthLogin(Json::Value& response, const char* accessToken);

/// Fills `out` with the signed-in account's profile, after asking the server when the stored one is a day old, or 5
/// minutes old with `forceRefresh`. Waits up to 30 s for a lock (-1 with the slot as it was), then 3 attempts of 120 s
/// (`shortTimeout`: 2 of 15 s). Returns 0, or -1 with `out` untouched; codes: 2 reply not JSON, 3 nobody signed in or
/// the server refuses the auth key (the record is removed then), 4 not sent, 5 reply incomplete or of the wrong types,
/// 6 memory or privileges, 8 serial, 19 record not written, 23 hosts, else the server's answer.
KIVO_API int VARNKIVOAccountQueryInfo(Json::Value& out, bool forceRefresh, bool shortTimeout);

/// Signs the device out: removes the account record, the report job and every token file. With `remote` the account
/// host is told first, within 30 s a request, and its refusal keeps every file. Returns 0, or -1; codes: 2 reply not
/// JSON or pkce_login.conf not readable, 5 no usable reply, 6 privileges or user agent, 8 serial, 22 no access token to
/// tell the host with, else the server's answer. Failures of the local clean-up are logged only.
KIVO_API int VARNKIVOAccountLogout(bool remote);

/// Asks the payment host for `action`. `args` is a flat object: texts are sent as they stand, any other value as
/// jsoncpp's toStyledString prints it, with a newline at its end. `account` (may be null): its `email` and `password`
/// are sent too. `response` (may be null) receives status and body, which is the caller's then: release it with
/// VARNKIVOHttpsResponseFree; its `curl_code` is left alone. Codes: 1 not an action, 2 `args` not flat or no object, 4
/// not sent or a status other than 200 and 400, 6 memory, 7 hosts.
KIVO_API int VARNPaymentHTTPSSendWithJSONAndAccount(PAYMENT_ACTION action, const Json::Value& args,
                                                    const struct _tag_kivo_INFO_* account,
                                                    struct _tag_libkivo_varn_response_* response);
/// The same without an account.
KIVO_API int VARNPaymentHTTPSSendWithJSON(PAYMENT_ACTION action, const Json::Value& args,
                                          struct _tag_libkivo_varn_response_* response);

/// Replaces `out`, which must not be null on entry, by what the signed-in account has bought: "logs" (objects with
/// "date", "item", "buyer_id", "transaction_id", "model", "serial", "price" as a number, "pay_status"), "total" and
/// "offset" (0). Dates may be null; the filters count where they are arrays of texts or numbers. Codes: 1 null
/// argument or a filter of objects, 2 reply not JSON, 3 nobody signed in, 4 not sent, 5 reply without "code" or with
/// entries that are none, 6 memory, 8 serial, 23 hosts, else the server's answer. `out` is untouched on failure.
KIVO_API int VARNKIVOAccountPurchaseList(const char* language, const char* dateFrom, const char* dateTo,
                                         const Json::Value& apps, const Json::Value& serials, const Json::Value& prices,
                                         const Json::Value& paypals, Json::Value& out);
/// Sets in `out` what the shop's embedded page has to know: "server_url", "serial_no", "orig_serial_no", "mac" and
/// "api_key". `out` is untouched on failure. Codes: 8 serial, 20 MAC, 23 hosts, else that of the cloud service.
KIVO_API int VARNKIVOGetIframeInfo(Json::Value& out);

/// Replaces `result` by the services of this device that are tied to an account already: an object by account, each
/// with "services", a list of objects with "type" ("package", "farlink", "ddns") and "value". Runs the dynamic DNS
/// tool and waits for it. What cannot be found out is left out.
KIVO_API int VARNKIVOAccountScanExisting(Json::Value& result);

}  // extern "C"
#endif

#endif  // VARNKIVO_VARNKIVO_H_

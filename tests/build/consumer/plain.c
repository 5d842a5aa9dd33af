/* The C part of the headers, compiled and linked as C. */
#include <stdio.h>
#include <string.h>
#include <varnkivo/varnkivo.h>

int main(void) {
  struct _tag_kivo_INFO_ info;
  char hex[33];
  memset(&info, 0, sizeof info);
  if (KivoGetMd5String("abc", hex, (int)sizeof hex) != 0) return 1;
  printf("%d %s %s %d\n", strcmp(VARNKIVOVersionGet(), VARNKIVO_VERSION), hex, GetKivoErrorMsg(KIVO_ERR_BAD_JSON),
         (int)sizeof info.email);
  return 0;
}

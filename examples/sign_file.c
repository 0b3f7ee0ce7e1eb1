/* Lists the token's certificates and signs a file with one of them, as a program should that is to
 * work with both libraries. To see it fail: end the signing service, and C_Sign gives 0x6, of
 * pkcs11-brivasign-standard 0x30; start it with --approval refuse: 0x50 or 0x201; give
 * C_FindObjectsInit a null pointer: 0x7; with pkcs11-brivasign, call C_Sign with a null pointer for
 * the signature first: openssl finds that what follows is no PSS signature. */

#include <dlfcn.h>
#include <openssl/evp.h>
#include <p11-kit/pkcs11.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>

enum { MOST_HANDLES = 1000, HASH_LENGTH = 32, SIGNATURE_LENGTH = 256 };

static CK_FUNCTION_LIST* module;
static CK_SESSION_HANDLE session;
/* pkcs11-brivasign takes no lock: every thread holds this one from the first call of a search or of
 * a signature to the last. */
static pthread_mutex_t moduleLock = PTHREAD_MUTEX_INITIALIZER;

static int fails(CK_RV result, const char* call) {
  if (result != CKR_OK) fprintf(stderr, "%s: 0x%lx, see docs/return-codes.md\n", call, result);
  return result != CKR_OK;
}

/* Finds the objects of a class, of the certificate `id` or, where that is null, of all: as many as
 * there is room for, since pkcs11-brivasign delivers once. Returns their number. */
static CK_ULONG find(CK_OBJECT_CLASS class, CK_ULONG* id, CK_OBJECT_HANDLE* handles) {
  CK_ATTRIBUTE wanted[] = {{CKA_CLASS, &class, sizeof class}, {CKA_ID, id, sizeof *id}};
  CK_ULONG count = 0;
  pthread_mutex_lock(&moduleLock);
  if (!fails(module->C_FindObjectsInit(session, wanted, id == NULL ? 1 : 2), "C_FindObjectsInit")) {
    fails(module->C_FindObjects(session, handles, MOST_HANDLES, &count), "C_FindObjects");
    fails(module->C_FindObjectsFinal(session), "C_FindObjectsFinal");
  }
  pthread_mutex_unlock(&moduleLock);
  return count;
}

/* Shows a certificate. Returns its identifier, or 0 when its file holds no certificate. */
static CK_ULONG show(CK_OBJECT_HANDLE certificate) {
  CK_ULONG id = 0;
  char label[2048];
  CK_ATTRIBUTE wanted[] = {{CKA_ID, &id, sizeof id}, {CKA_LABEL, label, sizeof label}};
  const CK_RV result = module->C_GetAttributeValue(session, certificate, wanted, 2);
  if (fails(result, "C_GetAttributeValue")) return 0;
  fprintf(stderr, "%lu %.*s\n", id, (int)wanted[1].ulValueLen, label);
  return id;
}

/* Signs standard input to standard output. The parameters live until C_Sign has returned, and it is
 * offered all the room at once. Returns whether it has signed; how well, the certificate tells. */
static int sign(CK_OBJECT_HANDLE key) {
  unsigned char piece[4096], hash[HASH_LENGTH], signature[SIGNATURE_LENGTH];
  EVP_MD_CTX* context = EVP_MD_CTX_new();
  EVP_DigestInit_ex(context, EVP_sha256(), NULL);
  size_t length;
  while ((length = fread(piece, 1, sizeof piece, stdin)) > 0) {
    EVP_DigestUpdate(context, piece, length);
  }
  EVP_DigestFinal_ex(context, hash, NULL);
  EVP_MD_CTX_free(context);

  CK_RSA_PKCS_PSS_PARAMS pss = {CKM_SHA256, CKG_MGF1_SHA256, HASH_LENGTH};
  CK_MECHANISM mechanism = {CKM_RSA_PKCS_PSS, &pss, sizeof pss};
  CK_ULONG room = sizeof signature;
  pthread_mutex_lock(&moduleLock);
  const int isSigned =
      !fails(module->C_SignInit(session, &mechanism, key), "C_SignInit") &&
      !fails(module->C_Sign(session, hash, sizeof hash, signature, &room), "C_Sign");
  pthread_mutex_unlock(&moduleLock);
  return isSigned && fwrite(signature, room, 1, stdout) == 1;
}

int main(int argc, char** argv) {
  static CK_OBJECT_HANDLE certificates[MOST_HANDLES], keys[MOST_HANDLES];
  CK_RV (*getFunctionList)(CK_FUNCTION_LIST**) = NULL;
  void* const library = argc > 1 ? dlopen(argv[1], RTLD_NOW) : NULL;
  if (library != NULL) *(void**)&getFunctionList = dlsym(library, "C_GetFunctionList");
  if (getFunctionList == NULL) {
    fprintf(stderr, "%s\n", argc > 1 ? dlerror() : "usage: sign-file MODULE [ID <FILE >SIGNATURE]");
    return 2;
  }
  if (fails(getFunctionList(&module), "C_GetFunctionList") ||
      fails(module->C_Initialize(NULL), "C_Initialize") ||
      fails(module->C_OpenSession(1, CKF_SERIAL_SESSION, NULL, NULL, &session), "C_OpenSession")) {
    return 1;
  }
  int isDone = argc == 2;
  const CK_ULONG count = find(CKO_CERTIFICATE, NULL, certificates);
  for (CK_ULONG i = 0; i < count; ++i) {
    CK_ULONG id = show(certificates[i]);
    if (argc < 3 || id == 0 || id != strtoul(argv[2], NULL, 10)) continue;
    isDone = find(CKO_PRIVATE_KEY, &id, keys) == 1 && sign(keys[0]);
  }
  fails(module->C_CloseAllSessions(1), "C_CloseAllSessions");
  fails(module->C_Finalize(NULL), "C_Finalize");
  return isDone ? 0 : 1;
}

/* The 68 functions of the PKCS#11 function list, v2.20 and v2.40, in its order: the one place that
 * names them.
 *
 * Define CK_FUNCTION_ENTRY(name, arguments) before including this file. The declarations, the
 * function pointer types, the function tables and the linkers' export lists all come from here; the
 * build reads the names line by line, so every entry begins its own line. No include guard: this
 * file is included once for each use. */

CK_FUNCTION_ENTRY(C_Initialize, (CK_VOID_PTR pInitArgs))
CK_FUNCTION_ENTRY(C_Finalize, (CK_VOID_PTR pReserved))
CK_FUNCTION_ENTRY(C_GetInfo, (CK_INFO_PTR pInfo))
CK_FUNCTION_ENTRY(C_GetFunctionList, (CK_FUNCTION_LIST_PTR_PTR ppFunctionList))

CK_FUNCTION_ENTRY(C_GetSlotList,
                  (CK_BBOOL tokenPresent, CK_SLOT_ID_PTR pSlotList, CK_ULONG_PTR pulCount))
CK_FUNCTION_ENTRY(C_GetSlotInfo, (CK_SLOT_ID slotID, CK_SLOT_INFO_PTR pInfo))
CK_FUNCTION_ENTRY(C_GetTokenInfo, (CK_SLOT_ID slotID, CK_TOKEN_INFO_PTR pInfo))
CK_FUNCTION_ENTRY(C_GetMechanismList,
                  (CK_SLOT_ID slotID, CK_MECHANISM_TYPE_PTR pMechanismList, CK_ULONG_PTR pulCount))
CK_FUNCTION_ENTRY(C_GetMechanismInfo,
                  (CK_SLOT_ID slotID, CK_MECHANISM_TYPE type, CK_MECHANISM_INFO_PTR pInfo))
CK_FUNCTION_ENTRY(C_InitToken, (CK_SLOT_ID slotID, CK_UTF8CHAR_PTR pPin, CK_ULONG ulPinLen,
                                CK_UTF8CHAR_PTR pLabel))
CK_FUNCTION_ENTRY(C_InitPIN, (CK_SESSION_HANDLE hSession, CK_UTF8CHAR_PTR pPin, CK_ULONG ulPinLen))
CK_FUNCTION_ENTRY(C_SetPIN, (CK_SESSION_HANDLE hSession, CK_UTF8CHAR_PTR pOldPin, CK_ULONG ulOldLen,
                             CK_UTF8CHAR_PTR pNewPin, CK_ULONG ulNewLen))

CK_FUNCTION_ENTRY(C_OpenSession, (CK_SLOT_ID slotID, CK_FLAGS flags, CK_VOID_PTR pApplication,
                                  CK_NOTIFY Notify, CK_SESSION_HANDLE_PTR phSession))
CK_FUNCTION_ENTRY(C_CloseSession, (CK_SESSION_HANDLE hSession))
CK_FUNCTION_ENTRY(C_CloseAllSessions, (CK_SLOT_ID slotID))
CK_FUNCTION_ENTRY(C_GetSessionInfo, (CK_SESSION_HANDLE hSession, CK_SESSION_INFO_PTR pInfo))
CK_FUNCTION_ENTRY(C_GetOperationState, (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pOperationState,
                                        CK_ULONG_PTR pulOperationStateLen))
CK_FUNCTION_ENTRY(C_SetOperationState,
                  (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pOperationState,
                   CK_ULONG ulOperationStateLen, CK_OBJECT_HANDLE hEncryptionKey,
                   CK_OBJECT_HANDLE hAuthenticationKey))
CK_FUNCTION_ENTRY(C_Login, (CK_SESSION_HANDLE hSession, CK_USER_TYPE userType, CK_UTF8CHAR_PTR pPin,
                            CK_ULONG ulPinLen))
CK_FUNCTION_ENTRY(C_Logout, (CK_SESSION_HANDLE hSession))

CK_FUNCTION_ENTRY(C_CreateObject, (CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate,
                                   CK_ULONG ulCount, CK_OBJECT_HANDLE_PTR phObject))
CK_FUNCTION_ENTRY(C_CopyObject,
                  (CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject, CK_ATTRIBUTE_PTR pTemplate,
                   CK_ULONG ulCount, CK_OBJECT_HANDLE_PTR phNewObject))
CK_FUNCTION_ENTRY(C_DestroyObject, (CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject))
CK_FUNCTION_ENTRY(C_GetObjectSize,
                  (CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject, CK_ULONG_PTR pulSize))
CK_FUNCTION_ENTRY(C_GetAttributeValue, (CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,
                                        CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount))
CK_FUNCTION_ENTRY(C_SetAttributeValue, (CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,
                                        CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount))
CK_FUNCTION_ENTRY(C_FindObjectsInit,
                  (CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount))
CK_FUNCTION_ENTRY(C_FindObjects, (CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE_PTR phObject,
                                  CK_ULONG ulMaxObjectCount, CK_ULONG_PTR pulObjectCount))
CK_FUNCTION_ENTRY(C_FindObjectsFinal, (CK_SESSION_HANDLE hSession))

CK_FUNCTION_ENTRY(C_EncryptInit,
                  (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey))
CK_FUNCTION_ENTRY(C_Encrypt, (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
                              CK_BYTE_PTR pEncryptedData, CK_ULONG_PTR pulEncryptedDataLen))
CK_FUNCTION_ENTRY(C_EncryptUpdate,
                  (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen,
                   CK_BYTE_PTR pEncryptedPart, CK_ULONG_PTR pulEncryptedPartLen))
CK_FUNCTION_ENTRY(C_EncryptFinal, (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pLastEncryptedPart,
                                   CK_ULONG_PTR pulLastEncryptedPartLen))
CK_FUNCTION_ENTRY(C_DecryptInit,
                  (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey))
CK_FUNCTION_ENTRY(C_Decrypt,
                  (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedData,
                   CK_ULONG ulEncryptedDataLen, CK_BYTE_PTR pData, CK_ULONG_PTR pulDataLen))
CK_FUNCTION_ENTRY(C_DecryptUpdate,
                  (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedPart,
                   CK_ULONG ulEncryptedPartLen, CK_BYTE_PTR pPart, CK_ULONG_PTR pulPartLen))
CK_FUNCTION_ENTRY(C_DecryptFinal,
                  (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pLastPart, CK_ULONG_PTR pulLastPartLen))

CK_FUNCTION_ENTRY(C_DigestInit, (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism))
CK_FUNCTION_ENTRY(C_Digest, (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
                             CK_BYTE_PTR pDigest, CK_ULONG_PTR pulDigestLen))
CK_FUNCTION_ENTRY(C_DigestUpdate,
                  (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen))
CK_FUNCTION_ENTRY(C_DigestKey, (CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hKey))
CK_FUNCTION_ENTRY(C_DigestFinal,
                  (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pDigest, CK_ULONG_PTR pulDigestLen))

CK_FUNCTION_ENTRY(C_SignInit,
                  (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey))
CK_FUNCTION_ENTRY(C_Sign, (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
                           CK_BYTE_PTR pSignature, CK_ULONG_PTR pulSignatureLen))
CK_FUNCTION_ENTRY(C_SignUpdate, (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen))
CK_FUNCTION_ENTRY(C_SignFinal, (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature,
                                CK_ULONG_PTR pulSignatureLen))
CK_FUNCTION_ENTRY(C_SignRecoverInit,
                  (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey))
CK_FUNCTION_ENTRY(C_SignRecover, (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
                                  CK_BYTE_PTR pSignature, CK_ULONG_PTR pulSignatureLen))

CK_FUNCTION_ENTRY(C_VerifyInit,
                  (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey))
CK_FUNCTION_ENTRY(C_Verify, (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
                             CK_BYTE_PTR pSignature, CK_ULONG ulSignatureLen))
CK_FUNCTION_ENTRY(C_VerifyUpdate,
                  (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen))
CK_FUNCTION_ENTRY(C_VerifyFinal,
                  (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature, CK_ULONG ulSignatureLen))
CK_FUNCTION_ENTRY(C_VerifyRecoverInit,
                  (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey))
CK_FUNCTION_ENTRY(C_VerifyRecover,
                  (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature, CK_ULONG ulSignatureLen,
                   CK_BYTE_PTR pData, CK_ULONG_PTR pulDataLen))

CK_FUNCTION_ENTRY(C_DigestEncryptUpdate,
                  (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen,
                   CK_BYTE_PTR pEncryptedPart, CK_ULONG_PTR pulEncryptedPartLen))
CK_FUNCTION_ENTRY(C_DecryptDigestUpdate,
                  (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedPart,
                   CK_ULONG ulEncryptedPartLen, CK_BYTE_PTR pPart, CK_ULONG_PTR pulPartLen))
CK_FUNCTION_ENTRY(C_SignEncryptUpdate,
                  (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen,
                   CK_BYTE_PTR pEncryptedPart, CK_ULONG_PTR pulEncryptedPartLen))
CK_FUNCTION_ENTRY(C_DecryptVerifyUpdate,
                  (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedPart,
                   CK_ULONG ulEncryptedPartLen, CK_BYTE_PTR pPart, CK_ULONG_PTR pulPartLen))

CK_FUNCTION_ENTRY(C_GenerateKey,
                  (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                   CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount, CK_OBJECT_HANDLE_PTR phKey))
CK_FUNCTION_ENTRY(C_GenerateKeyPair,
                  (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                   CK_ATTRIBUTE_PTR pPublicKeyTemplate, CK_ULONG ulPublicKeyAttributeCount,
                   CK_ATTRIBUTE_PTR pPrivateKeyTemplate, CK_ULONG ulPrivateKeyAttributeCount,
                   CK_OBJECT_HANDLE_PTR phPublicKey, CK_OBJECT_HANDLE_PTR phPrivateKey))
CK_FUNCTION_ENTRY(C_WrapKey, (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                              CK_OBJECT_HANDLE hWrappingKey, CK_OBJECT_HANDLE hKey,
                              CK_BYTE_PTR pWrappedKey, CK_ULONG_PTR pulWrappedKeyLen))
CK_FUNCTION_ENTRY(C_UnwrapKey, (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                                CK_OBJECT_HANDLE hUnwrappingKey, CK_BYTE_PTR pWrappedKey,
                                CK_ULONG ulWrappedKeyLen, CK_ATTRIBUTE_PTR pTemplate,
                                CK_ULONG ulAttributeCount, CK_OBJECT_HANDLE_PTR phKey))
CK_FUNCTION_ENTRY(C_DeriveKey, (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                                CK_OBJECT_HANDLE hBaseKey, CK_ATTRIBUTE_PTR pTemplate,
                                CK_ULONG ulAttributeCount, CK_OBJECT_HANDLE_PTR phKey))

CK_FUNCTION_ENTRY(C_SeedRandom, (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSeed, CK_ULONG ulSeedLen))
CK_FUNCTION_ENTRY(C_GenerateRandom,
                  (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pRandomData, CK_ULONG ulRandomLen))

CK_FUNCTION_ENTRY(C_GetFunctionStatus, (CK_SESSION_HANDLE hSession))
CK_FUNCTION_ENTRY(C_CancelFunction, (CK_SESSION_HANDLE hSession))
CK_FUNCTION_ENTRY(C_WaitForSlotEvent, (CK_FLAGS flags, CK_SLOT_ID_PTR pSlot, CK_VOID_PTR pReserved))

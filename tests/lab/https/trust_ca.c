/* The HTTPS lab's CA in the Wine prefix's LocalMachine\Root store, where
 * WinHTTP looks for the roots it trusts.
 *
 *   lab-trust-ca add PEM       adds the certificate (replacing an equal one)
 *   lab-trust-ca remove PEM    removes it; nothing to remove is no error
 *   lab-trust-ca check PEM     exit 0 when it is in the store, 1 when not
 *
 * PEM is a file holding one certificate, PEM or DER. Exit 2 on any failure,
 * with the reason on standard error.
 */
#include <windows.h>
#include <wincrypt.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>

static int fail(const char *what)
{
    fprintf(stderr, "lab-trust-ca: %s (error %lu)\n", what, (unsigned long)GetLastError());
    return 2;
}

static HCERTSTORE openRoot(void)
{
    return CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_LOCAL_MACHINE, L"Root");
}

/* Whether a fresh look at the store finds the certificate. */
static BOOL inRoot(PCCERT_CONTEXT cert)
{
    HCERTSTORE store = openRoot();
    if (!store)
        return FALSE;
    PCCERT_CONTEXT found = CertFindCertificateInStore(store, X509_ASN_ENCODING, 0, CERT_FIND_EXISTING, cert, NULL);
    if (found)
        CertFreeCertificateContext(found);
    CertCloseStore(store, 0);
    return found != NULL;
}

/* Wine's LocalMachine\Root answers a delete with success and keeps the
 * certificate; the registry key it keeps it under (as Windows does) goes
 * then. */
static BOOL removeFromRegistry(PCCERT_CONTEXT cert)
{
    BYTE hash[20];
    DWORD size = sizeof hash;
    if (!CertGetCertificateContextProperty(cert, CERT_SHA1_HASH_PROP_ID, hash, &size) || size != sizeof hash)
        return FALSE;
    wchar_t key[128] = L"Software\\Microsoft\\SystemCertificates\\Root\\Certificates\\";
    size_t at = wcslen(key);
    for (DWORD i = 0; i < size; ++i)
        swprintf(key + at + 2 * i, 3, L"%02X", hash[i]);
    LSTATUS rc = RegDeleteTreeW(HKEY_LOCAL_MACHINE, key);
    if (rc == ERROR_SUCCESS)
        rc = RegDeleteKeyW(HKEY_LOCAL_MACHINE, key);
    return rc == ERROR_SUCCESS || rc == ERROR_FILE_NOT_FOUND;
}

/* The file's bytes, NUL-terminated; NULL when it can't be read. */
static BYTE *readAll(const wchar_t *path, DWORD *size)
{
    HANDLE file = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, NULL, OPEN_EXISTING, 0, NULL);
    if (file == INVALID_HANDLE_VALUE)
        return NULL;
    DWORD length = GetFileSize(file, NULL);
    BYTE *data = length == INVALID_FILE_SIZE ? NULL : malloc((size_t)length + 1);
    DWORD got = 0;
    if (data && (!ReadFile(file, data, length, &got, NULL) || got != length)) {
        free(data);
        data = NULL;
    }
    CloseHandle(file);
    if (data) {
        data[length] = 0;
        *size = length;
    }
    return data;
}

int wmain(int argc, wchar_t **argv)
{
    if (argc != 3 || (wcscmp(argv[1], L"add") && wcscmp(argv[1], L"remove") && wcscmp(argv[1], L"check"))) {
        fprintf(stderr, "usage: lab-trust-ca add|remove|check PEM\n");
        return 2;
    }
    DWORD size = 0;
    BYTE *file = readAll(argv[2], &size);
    if (!file)
        return fail("can't read the certificate file");

    /* PEM first; a file that isn't PEM is taken as DER. */
    BYTE *der = file;
    DWORD derSize = size;
    DWORD decoded = 0;
    if (CryptStringToBinaryA((const char *)file, size, CRYPT_STRING_BASE64HEADER, NULL, &decoded, NULL, NULL)) {
        der = malloc(decoded);
        if (!der || !CryptStringToBinaryA((const char *)file, size, CRYPT_STRING_BASE64HEADER, der, &decoded, NULL,
                                          NULL))
            return fail("can't decode the PEM text");
        derSize = decoded;
    }
    PCCERT_CONTEXT cert = CertCreateCertificateContext(X509_ASN_ENCODING, der, derSize);
    if (!cert)
        return fail("the file holds no certificate");

    HCERTSTORE store = openRoot();
    if (!store)
        return fail("can't open LocalMachine\\Root");

    int rc = 0;
    if (!wcscmp(argv[1], L"add")) {
        if (!CertAddCertificateContextToStore(store, cert, CERT_STORE_ADD_REPLACE_EXISTING, NULL))
            rc = fail("can't add the certificate to LocalMachine\\Root");
    } else {
        PCCERT_CONTEXT found = CertFindCertificateInStore(store, X509_ASN_ENCODING, 0, CERT_FIND_EXISTING, cert, NULL);
        if (!wcscmp(argv[1], L"check")) {
            rc = found ? 0 : 1;
            if (found)
                CertFreeCertificateContext(found);
        } else if (found && !CertDeleteCertificateFromStore(found)) {
            /* CertDeleteCertificateFromStore frees the context either way. */
            rc = fail("can't remove the certificate from LocalMachine\\Root");
        }
    }
    CertCloseStore(store, 0);
    if (rc == 0 && !wcscmp(argv[1], L"remove") && inRoot(cert) && (!removeFromRegistry(cert) || inRoot(cert)))
        rc = fail("the certificate stays in LocalMachine\\Root");
    if (rc == 0 && !wcscmp(argv[1], L"add") && !inRoot(cert))
        rc = fail("the certificate added is not found in LocalMachine\\Root");
    CertFreeCertificateContext(cert);
    return rc;
}

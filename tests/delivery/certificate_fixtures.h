#pragma once
// Certificates for the offline certificate tests, made once with openssl
// (the commands are below) and kept as text, so that the tests need neither
// openssl nor a server. The CAs are valid for a hundred years from November
// 2026, the good leaves from 2024 to 2124; "expired" ended in 2001. Thumbprints are openssl's own
// ("openssl x509 -noout -fingerprint -sha1|-sha256"), not the client's.
//
//   openssl req -x509 -new -newkey rsa:2048 -nodes -sha256 -days 36500
//     -subj "/CN=Delivery Test CA" -addext "basicConstraints=critical,CA:TRUE"
//     -addext "keyUsage=critical,keyCertSign,cRLSign" -keyout testca.key -out testca.pem
//   (the same for "Delivery Other CA" as otherca)
//   openssl req -new -newkey rsa:2048 -nodes -subj "/CN=localhost"
//     -addext "subjectAltName=DNS:localhost,IP:127.0.0.1" -addext "basicConstraints=CA:FALSE"
//     -addext "extendedKeyUsage=serverAuth" -keyout server.key -out server.csr
//   openssl ca -batch -config ca.cnf -cert testca.pem -keyfile testca.key -in server.csr
//     -out server.pem -startdate 20240101000000Z -enddate 21240101000000Z
//   otherserver: CN and DNS localhost, signed by otherca, same dates
//   expired: CN and DNS localhost, signed by testca, 20000101000000Z to 20010101000000Z
//   wronghost: CN and DNS other.example, signed by testca, 2024 to 2124
//   (ca.cnf: a minimal "openssl ca" section with copy_extensions=copy)

namespace fixtures {
inline const char kTestCaPem[] =
    "-----BEGIN CERTIFICATE-----\n"
    "MIIDKTCCAhGgAwIBAgIUSglmuNnTqz+uPhHNAHVc12oencIwDQYJKoZIhvcNAQEL\n"
    "BQAwGzEZMBcGA1UEAwwQRGVsaXZlcnkgVGVzdCBDQTAgFw0yNjExMjMyMDI2MjNa\n"
    "GA8yMTI2MTAzMDIwMjYyM1owGzEZMBcGA1UEAwwQRGVsaXZlcnkgVGVzdCBDQTCC\n"
    "ASIwDQYJKoZIhvcNAQEBBQADggEPADCCAQoCggEBAMA1A2BHVsyrnQsp2q1Sellk\n"
    "4OGnfU5/WxPQP5uXSsitMsXHjtZzl0oB1sMHTNFSkGNvzFrtD9gyKLfchB/BYWSF\n"
    "nvNfN4w55EWwur8kF5Un0GWdxfTVyFDTG696p+v1Fy74QVZs35e0WuAgLbZ4OtJ4\n"
    "AirPJWrKQ5epqRHRz86qE3tY2AwGqzJe1EVRlRHPHsBKNNe91Nu3Kup3xNNcT8hB\n"
    "uLTpnyW1agIlus5/BB9+tJ1JAX4WsGPwi1uptL9HacKIJqNcT1sF8QPErM44RKLc\n"
    "O5T2gvzmMgq7JKGJLCd9yaF/vzOdk1VE1CGOJ3noo2iA+qS1d+hI+UwcGVKf/28C\n"
    "AwEAAaNjMGEwHQYDVR0OBBYEFHccmqJ6sAyfEtZDe+3u/ElWlOePMB8GA1UdIwQY\n"
    "MBaAFHccmqJ6sAyfEtZDe+3u/ElWlOePMA8GA1UdEwEB/wQFMAMBAf8wDgYDVR0P\n"
    "AQH/BAQDAgEGMA0GCSqGSIb3DQEBCwUAA4IBAQBOf9ghrkMrJBvhISKiiyQwVqgk\n"
    "Es94G9Np1/RNZiOIXMmW7lURzefiddWU4luOtbSQCReewPg6ga64OMhSpDTrPSBn\n"
    "wUcGRBYSLHWnjjKlH9eeewgUaNW7PX854FWxob5/9JOQkC/c64PJES2VYov5DzqG\n"
    "lwb2r5mmHsmc4/82T2KtHBK6czhkawMUC5gHUfH0sZFDh0dqgt+iLRaec6nkUclf\n"
    "wW/yIW49D/Xy1FCogCoGq5u/sd/y982Kux+HXnabFdRrbE8C/+iepreFtJMrE7JF\n"
    "NbEPARs22OM3tQYlfRx3+bPo/hqUkUFpKwqk9aJ9RlLUGVAp7B0Og0/pzZfh\n"
    "-----END CERTIFICATE-----\n";
inline const char kTestCaSha1[] = "2F49F6968464DE12249EC22834D544135D82837C";
inline const char kTestCaSha256[] = "9845A859710F8D557F540512B7E1CDAB1D95ED8BE33DF8480DDD3F3EABB41271";

inline const char kOtherCaPem[] =
    "-----BEGIN CERTIFICATE-----\n"
    "MIIDKzCCAhOgAwIBAgIUYlWVUka4FPqf75eDWflq9gJ7ocswDQYJKoZIhvcNAQEL\n"
    "BQAwHDEaMBgGA1UEAwwRRGVsaXZlcnkgT3RoZXIgQ0EwIBcNMjYxMTIzMjAyNjIz\n"
    "WhgPMjEyNjEwMzAyMDI2MjNaMBwxGjAYBgNVBAMMEURlbGl2ZXJ5IE90aGVyIENB\n"
    "MIIBIjANBgkqhkiG9w0BAQEFAAOCAQ8AMIIBCgKCAQEA1aP0MGltSRu5kpmeQip+\n"
    "2crRv0EsQKIIc5DoBlUnrQB4hK0GZGshAQ/WEctTnQsIc1TYaFbj8/I9gvoIL2KM\n"
    "+RrywjdR3w06MK79p7qA7chPt2SeOKuyR7qezB7b7S22NmliM2IiH+Q9cwIDKK0+\n"
    "JRUkLWOzzv4/vHn5kToTg6CA+yQzh9pNqN7nLKKSIVFNcItqFjkY/YmZYAIofKQi\n"
    "MjrL1QvHwE/oaMPFm0jA9EH0pl9VflDol242WyOg/kg4PaP/H2mCSLrodWhyJCF3\n"
    "//xDsCjU5Gs4D2I/oJgxw40BpLKB1eii9dCmHtL+88imkDkkCVJ14AJEA2TS3947\n"
    "0QIDAQABo2MwYTAdBgNVHQ4EFgQUZwPrFWkHHxAzyMALa2uMG7584O8wHwYDVR0j\n"
    "BBgwFoAUZwPrFWkHHxAzyMALa2uMG7584O8wDwYDVR0TAQH/BAUwAwEB/zAOBgNV\n"
    "HQ8BAf8EBAMCAQYwDQYJKoZIhvcNAQELBQADggEBANTE99H4WrGqVnOWh/Ha44Ap\n"
    "Rao9pETOLvJJOtFIlkzieHshYRmmkrCRjV3pvs8WigeioHNyUkN0vzBBUNP1nhbp\n"
    "TkT4L2Mdslb4f2aPihXwuWm/JvtGwWdAGs8KQrCwsjq6SD0w6i/86iSwpL1cBUc8\n"
    "yekIv7+E4O3Uh2LNxc5gqkFo2mPgphiAgIkdEYF3p7FsKSJGzDcuKcYCRgnoCrCV\n"
    "25WsZ/8CDky2RnKj2zp+MhlT0oO+T83YG8/vmDfI3R2NgXfxTOcUEVTT2yDzbI5U\n"
    "L7xq4yv/xIvOp50LXnRaa6AY9IIW8YhvJS3tSHr9Hiwwg6VcX53OLOTkcv4hpm0=\n"
    "-----END CERTIFICATE-----\n";
inline const char kOtherCaSha1[] = "FBB871CD5FDC35FB6EC4B2A7BE55B2DEF25B0699";
inline const char kOtherCaSha256[] = "465071A6F8ED5AFA801F5D793ED2DF4F2F105E2F9CC0C52765802A759D382582";

inline const char kServerPem[] =
    "-----BEGIN CERTIFICATE-----\n"
    "MIIDKzCCAhOgAwIBAgICEAAwDQYJKoZIhvcNAQELBQAwGzEZMBcGA1UEAwwQRGVs\n"
    "aXZlcnkgVGVzdCBDQTAgFw0yNDAxMDEwMDAwMDBaGA8yMTI0MDEwMTAwMDAwMFow\n"
    "FDESMBAGA1UEAwwJbG9jYWxob3N0MIIBIjANBgkqhkiG9w0BAQEFAAOCAQ8AMIIB\n"
    "CgKCAQEArWLJfvPzMo8HJuPhMkMJ2jO6RjXynjxADm3k1z5rO7yJe7Qml/eRL3Nb\n"
    "VvLzhdkCb0iBZHgf1hGyXucOfB61O5nPRf2s03ZU1ZgBke46B1aZDUm4TCpqbl1a\n"
    "vGkfbL5hV4mw6p7r06eXfwMe2/iuOysDuN6swpfkizT9ivDEZdF4HcwXa9ylwdS/\n"
    "dgP6/ZYrwEh1Bc+apcUi4u5QOYpv+SBD17uG1zzzP7Qj2OT1kon2juzpw48gMPbb\n"
    "KHS/hBEo1ePHtSOwvk1P91Sc7mpOl8u2twwlHqxOSfWgpOHTDZ3RvQCx1EubfFND\n"
    "IUmnCNzttotx34+XBeaV+WUQTNu5uQIDAQABo34wfDAaBgNVHREEEzARgglsb2Nh\n"
    "bGhvc3SHBH8AAAEwCQYDVR0TBAIwADATBgNVHSUEDDAKBggrBgEFBQcDATAdBgNV\n"
    "HQ4EFgQU9b/mf/2c96u9XHTnFQoudP9Kil8wHwYDVR0jBBgwFoAUdxyaonqwDJ8S\n"
    "1kN77e78SVaU548wDQYJKoZIhvcNAQELBQADggEBAFdZtKOMGLabLZWIt7uuno84\n"
    "99FRw8eF3GhanC+pnWC/yY3S3+aM8QdeHTjaTxUVSTLZCO3+Nobjz6HwPDqv2yCb\n"
    "4b93iC6S0h69OGLzPqzGMvJ8OFNS1JvZyDpclmZzyLEjiy/TTRIz7AdIgn8gSni+\n"
    "kRim8Peou7vrSpS9AM+brQ/kc8J5pzL1evsZkuQCWr8WpzW54nyo+OvsWOJhTVpV\n"
    "fwoqqKIfF5HL1dVlB5tQPJVEYzk7npG3Zt/SIRZfhxm9GdGL9XdsdWoSCxxaHRFe\n"
    "BhmOF1Gh3l3K7R8PM17WmSPcFoULNXBgC61KO5cY4+wKdRHfqTPU7wdY30krrgk=\n"
    "-----END CERTIFICATE-----\n";
inline const char kServerSha1[] = "535643D3734B2C8C7FA9750B62C743CF63EA0B7B";
inline const char kServerSha256[] = "5373434D8F977DD4CB2190872244A5B117AC44DDDCE2BABF1090F998BDD3AA03";

inline const char kOtherServerPem[] =
    "-----BEGIN CERTIFICATE-----\n"
    "MIIDJjCCAg6gAwIBAgICEAEwDQYJKoZIhvcNAQELBQAwHDEaMBgGA1UEAwwRRGVs\n"
    "aXZlcnkgT3RoZXIgQ0EwIBcNMjQwMTAxMDAwMDAwWhgPMjEyNDAxMDEwMDAwMDBa\n"
    "MBQxEjAQBgNVBAMMCWxvY2FsaG9zdDCCASIwDQYJKoZIhvcNAQEBBQADggEPADCC\n"
    "AQoCggEBAM1Ut2JeX02IQ4yLUNmnEmXKmOcc1QyRR22bH+G05KaHSWTm9V6fC/Kp\n"
    "9RpjKIxS4zG+zUxMyXm6fn4hsable5gV1A/QF1AHycDvNYqQiZRA8WxXkRC5kKgd\n"
    "wmriv75Ho/pj3zNhWjOfw+UCMCGoDyBM/jUP8cOUSbjQHIeEzZYAEv7Jw3HAFPZu\n"
    "Cn4Q9g3aS3VAsxP2SCz/6d1FTD4eZxmk7yB/ZnFRfu4QRiIJ9G1ofnTLdk5ug5LI\n"
    "x9LMLtQNUpVtMOhFggA6if98meh5nEdLWei71NFsO6fz20jPd4U32Ni1BGGLvncG\n"
    "Y1gaP7kSwdNAOZ0a0F+T6q48P6fgNv8CAwEAAaN4MHYwFAYDVR0RBA0wC4IJbG9j\n"
    "YWxob3N0MAkGA1UdEwQCMAAwEwYDVR0lBAwwCgYIKwYBBQUHAwEwHQYDVR0OBBYE\n"
    "FGYrk7XVUnr3HHztWOearYeHUCd4MB8GA1UdIwQYMBaAFGcD6xVpBx8QM8jAC2tr\n"
    "jBu+fODvMA0GCSqGSIb3DQEBCwUAA4IBAQDEPXqZ0tCmsQ/0gePPhNEENzGGCcd2\n"
    "dCTMNGRw/KQhcXMGi5pSGVsGESGUwi0AWk5nnUaj3CD7ZBTCwDmdw4Wrxr0YIBP7\n"
    "yQYkRteWN7oNUKh2MZVk/uDSjv4s6n0xiyLqURDUBWDajIsJp48y4teE6ZFLrHG7\n"
    "uw4GEktBiPCreCiE68l97k6nUv7F7hl3qz/6lcfL3+bEj8jv7/o7kcMV077z8sh2\n"
    "+OUDNqvLmt3untgyA2J3r6PAwnvPh8Stbiu1oIB06Gt365lLwowt56IHJf9KACMN\n"
    "AT3lC158F1JN1wk97RbWMGQAEeiSEzehj1J6JtMEtaLDn+gPVdBYhZal\n"
    "-----END CERTIFICATE-----\n";
inline const char kOtherServerSha1[] = "A082EB3BDC9C1B763C0911AB4C9025D878753240";
inline const char kOtherServerSha256[] = "CBDABCE3893AED3AE00ED05C8CF59E030AE8B960195295230A89F1BE99D4F39E";

inline const char kExpiredPem[] =
    "-----BEGIN CERTIFICATE-----\n"
    "MIIDIzCCAgugAwIBAgICEAIwDQYJKoZIhvcNAQELBQAwGzEZMBcGA1UEAwwQRGVs\n"
    "aXZlcnkgVGVzdCBDQTAeFw0wMDAxMDEwMDAwMDBaFw0wMTAxMDEwMDAwMDBaMBQx\n"
    "EjAQBgNVBAMMCWxvY2FsaG9zdDCCASIwDQYJKoZIhvcNAQEBBQADggEPADCCAQoC\n"
    "ggEBALO6bmw2psah8J3N5LJOzifB01nfByPN5B2T+dC9s2gtL6DxqvTBnLCD273Q\n"
    "907ib9LrPXIA81dXZrW5OHO4bVhYGuWaaueFTrVXm0+zSdOFsFnRQxqQNEdgJ5m+\n"
    "P+5RHnuMsrxoykw2CL1BcgG55qXrhV1aDUIzZcLMDgpntV9WUDKrAjss5T6CKQH4\n"
    "79aiAjlS/zDaUOZ3emjEjCpZwfemsUuhWbKZM+ZkSEBr1/Moe3+2kL7aDPJE6ZVa\n"
    "ilKAA6nhqvXbMdWqQ09Qs/4fxRxybTOHUgYLivQuDSDbbNV64xY0PkOAgsqjVNYQ\n"
    "DmgPMcXkzQPtJKcEFePwqSU4CgMCAwEAAaN4MHYwFAYDVR0RBA0wC4IJbG9jYWxo\n"
    "b3N0MAkGA1UdEwQCMAAwEwYDVR0lBAwwCgYIKwYBBQUHAwEwHQYDVR0OBBYEFNAm\n"
    "A8dxXqO8B+ReGkQU/cGBuxLZMB8GA1UdIwQYMBaAFHccmqJ6sAyfEtZDe+3u/ElW\n"
    "lOePMA0GCSqGSIb3DQEBCwUAA4IBAQCoplHaIOEJ6EXCiSND9tYfpPV8hJJIOFA4\n"
    "X3LNiVreUG/RJnIb/wIUNmosv+QZ07JVNT2/rjpED72hGaVITdD7x3mNHdG/81lf\n"
    "S/Y3zwtBxEyiPwxbO4IFFwmZK7dzyaIiQM0Ghtqm7iPUEnnWmVJdB8AA3Xa13TGw\n"
    "dPho8yt8RSqYeJqJi2sz0/caGralVuOHkdfvCYWyDJj2yOeE1TuNTYS1/emKW2SR\n"
    "StP4Bzmz2Ou3mujCVhlWdhc1HvDy+nx2OJqavpQViQbmJbo4PLM6WEL5bn2HL91p\n"
    "ed2xV3SYabkc+PfIYUZV3AMZnvNTA9qQVFoUCVVUoBriFcQFQG8N\n"
    "-----END CERTIFICATE-----\n";
inline const char kExpiredSha1[] = "AEB04F829E5A17A18BBE61EC751185ADCC78A091";
inline const char kExpiredSha256[] = "A2A9D12C1FF8EBD670C9931331A2D4C231E73C122B39854CD30064A7DE735BA2";

inline const char kWrongHostPem[] =
    "-----BEGIN CERTIFICATE-----\n"
    "MIIDLTCCAhWgAwIBAgICEAMwDQYJKoZIhvcNAQELBQAwGzEZMBcGA1UEAwwQRGVs\n"
    "aXZlcnkgVGVzdCBDQTAgFw0yNDAxMDEwMDAwMDBaGA8yMTI0MDEwMTAwMDAwMFow\n"
    "GDEWMBQGA1UEAwwNb3RoZXIuZXhhbXBsZTCCASIwDQYJKoZIhvcNAQEBBQADggEP\n"
    "ADCCAQoCggEBAMgmO1dlbwcAqN9Upm9pkx4EQPKwX+BWlCQAm8cUO11D3ticEAOe\n"
    "0pms7Gz67Bb4OphdF2nd/7MkTuMYedopbe/nmjK5ZXrzboDaA8m4Am4v1nNDPbdx\n"
    "DA9UlzvE1PDXABJb9uy28WxxPYtY8fMGthmh0pFG3zBiwlt3MkSo/sd8SB2k72/b\n"
    "8g3TqyqyTwHi1ODPHUg5A8wD7tNxGivVindZ8HYzRGfShtcqBb2/NUMQtxFvS5tS\n"
    "jW7to7ugioERrUMuzcw+yt2DDEDuYdl6HyaS6b34Sy+h98ydO3Uj0IjnSW5aIrKn\n"
    "ihh3rqBIrOVuAyNjc2ZgPiAtZ/pvfXGhSUkCAwEAAaN8MHowGAYDVR0RBBEwD4IN\n"
    "b3RoZXIuZXhhbXBsZTAJBgNVHRMEAjAAMBMGA1UdJQQMMAoGCCsGAQUFBwMBMB0G\n"
    "A1UdDgQWBBRkmUe+I5DPTypZtCyFL81dsmTH+zAfBgNVHSMEGDAWgBR3HJqierAM\n"
    "nxLWQ3vt7vxJVpTnjzANBgkqhkiG9w0BAQsFAAOCAQEAsfFRmWlrzHqrQ0SxFm7A\n"
    "A0PupZl9SrA8lhsEdDKVx+pLKIcAoTCUnFLLrEEYUoa4PPIKPAlC1NTABGxXwIkA\n"
    "IYn9s6IlGe06rehDno13Dkmsb93kHGjpPmpItDCb3Itlu/KrpjxDO2TksApxjSfW\n"
    "zSlSr+eFf8053Rsm7r3jIX3tRjtHJQp7ufsrzqhDZY8eK/1wM5d3IMpesQbl9lre\n"
    "OhZoIzIUx7KS2jRl1WWldDlFrmoVfDZlaMlF6DbXQ6j/vIDWv0WGyOSfgZ66B5Rj\n"
    "JfuruH61zU880yeO88aT8VB9UACBSizMT0rqi7U6MC4FsRsxZadJImxjVu3dXz2O\n"
    "OA==\n"
    "-----END CERTIFICATE-----\n";
inline const char kWrongHostSha1[] = "872DA6EF0CBAFBA46C6DB7365B8DA6E149D66BF3";
inline const char kWrongHostSha256[] = "FE3E53832DCCEB256FB3EC87174973D43C90A0B2124F69BE3EAA9B5484994C05";

}  // namespace fixtures

#include <orvutil/login.h>
#include <orvutil/sasl_server.h>
#include <stdio.h>

int main(void)
{
    /* What a POP3 server offers a client without TLS (no configuration:
     * plaintext allowed, no plain passwords in the directory, so no CRAM-MD5). */
    char caps[LOGIN_CAPABILITIES_SIZE];
    printf("[%s]\n", login_capabilities(caps, 0, "pop3", 0, 0));  /* [ AUTH=PLAIN AUTH=LOGIN] */

    /* A mechanism chosen by the name the client sends, in any case. */
    const sasl_server_mech *mech;
    const char *err;
    if (login_authenticate("login", &mech, &err) == 0) printf("%s\n", mech->name);  /* LOGIN */
    int unknown = login_authenticate("gssapi", &mech, &err);
    printf("%d %s\n", unknown, err ? err : "no text");  /* 1 no text */

    /* Its first challenge; each client answer then goes to mech->step. */
    login_params params;
    login_init_params(&params, "example.com", "pop3", NULL, NULL, 1, NULL);
    void *state = NULL;
    int len = 0;
    const char *challenge = NULL;
    if (mech->start(mech->context, &params, NULL, &len, &challenge, NULL, &state, &err) == SASL_CONTINUE)
        printf("%.*s\n", len, challenge);             /* Username: */
    mech->free_state(state);
    login_free_params(&params);

    /* CRAM-MD5's keyed digest (RFC 2202, case 2). */
    unsigned char digest[16];
    sasl_hmac_md5((const unsigned char *)"what do ya want for nothing?", 28, (const unsigned char *)"Jefe", 4, digest);
    for (int i = 0; i < 16; i++) printf("%02x", digest[i]);
    printf("\n");                                     /* 750c783e6ab0b503eaa86e310a5db738 */
    return 0;
}

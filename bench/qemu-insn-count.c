/* A qemu user-mode plugin that counts the guest instructions a program
 * executes, for bench/footprint.sh: the decoder's cost on the target's
 * instruction set, independent of how fast the emulator runs.
 *
 *   QEMU_PLUGIN="file=libqemu-insn-count.so,dir=/some/dir" qemu-arm PROGRAM
 * writes the count to dir/insns.PID when the program exits.
 *
 * qemu-user ships no plugin header, so the few entry points used are
 * declared here (plugin API version 1, as in qemu 7.x). Each translated block
 * adds its instruction count to a counter when it runs (an inline add: no
 * call per block); threads share the counter, so a count may lose a few
 * increments to races, negligible against hundreds of millions. */
#include <inttypes.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

typedef uint64_t qemu_plugin_id_t;
typedef struct qemu_info_t qemu_info_t;
struct qemu_plugin_tb;
enum qemu_plugin_op { QEMU_PLUGIN_INLINE_ADD_U64 };

typedef void (*qemu_plugin_vcpu_tb_trans_cb_t)(qemu_plugin_id_t id, struct qemu_plugin_tb* tb);
typedef void (*qemu_plugin_udata_cb_t)(qemu_plugin_id_t id, void* userdata);

size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* tb);
void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb* tb, enum qemu_plugin_op op, void* ptr,
                                              uint64_t imm);
void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t id, qemu_plugin_vcpu_tb_trans_cb_t cb);
void qemu_plugin_register_atexit_cb(qemu_plugin_id_t id, qemu_plugin_udata_cb_t cb, void* userdata);

__attribute__((visibility("default"))) int qemu_plugin_version = 1;

static uint64_t g_instructions;
static char g_directory[4096] = ".";

static void OnTranslate(qemu_plugin_id_t id, struct qemu_plugin_tb* tb)
{
    (void)id;
    qemu_plugin_register_vcpu_tb_exec_inline(tb, QEMU_PLUGIN_INLINE_ADD_U64, &g_instructions,
                                             qemu_plugin_tb_n_insns(tb));
}

static void OnExit(qemu_plugin_id_t id, void* userdata)
{
    (void)id;
    (void)userdata;
    char path[4200];
    snprintf(path, sizeof path, "%s/insns.%ld", g_directory, (long)getpid());
    FILE* out = fopen(path, "w");
    if (out != NULL) {
        fprintf(out, "%" PRIu64 "\n", g_instructions);
        fclose(out);
    }
}

__attribute__((visibility("default"))) int qemu_plugin_install(qemu_plugin_id_t id, const qemu_info_t* info,
                                                               int argc, char** argv)
{
    (void)info;
    for (int i = 0; i < argc; ++i) {
        if (strncmp(argv[i], "dir=", 4) == 0) {
            snprintf(g_directory, sizeof g_directory, "%s", argv[i] + 4);
        }
    }
    qemu_plugin_register_vcpu_tb_trans_cb(id, OnTranslate);
    qemu_plugin_register_atexit_cb(id, OnExit, NULL);
    return 0;
}

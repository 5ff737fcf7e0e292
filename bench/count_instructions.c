/* A plugin of the emulator: tells on standard error how many instructions a program ran. */
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

/* What it takes of the emulator's interface, version 1; the package has no header. */
struct qemu_plugin_tb;
enum { QEMU_PLUGIN_INLINE_ADD_U64 };
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb *block);
void qemu_plugin_register_vcpu_tb_trans_cb(uint64_t id,
                                           void (*called)(uint64_t, struct qemu_plugin_tb *));
void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb *block, int operation,
                                              void *sum, uint64_t addend);
void qemu_plugin_register_atexit_cb(uint64_t id, void (*called)(uint64_t, void *), void *data);

__attribute__((visibility("default"))) int qemu_plugin_version = 1;

static uint64_t g_instructions; /* of one thread: the programs that are counted have no other */

static void Translated(uint64_t id, struct qemu_plugin_tb *block)
{
    (void)id;
    qemu_plugin_register_vcpu_tb_exec_inline(block, QEMU_PLUGIN_INLINE_ADD_U64, &g_instructions,
                                             qemu_plugin_tb_n_insns(block));
}

static void Ends(uint64_t id, void *data)
{
    (void)id;
    (void)data;
    fprintf(stderr, "%llu\n", (unsigned long long)g_instructions);
}

__attribute__((visibility("default"))) int qemu_plugin_install(uint64_t id, const void *emulator,
                                                               int count, char **arguments)
{
    (void)emulator;
    (void)count;
    (void)arguments;
    qemu_plugin_register_vcpu_tb_trans_cb(id, Translated);
    qemu_plugin_register_atexit_cb(id, Ends, NULL);
    return 0;
}

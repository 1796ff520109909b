// One small entry for each slot. It keeps every register that may hold an argument, asks
// faults_decide where to go on, and goes there: whoever is called sees nothing of it.
#if defined(__x86_64__)
__asm__(R"(
    .text
    .balign 16
    .hidden faults_thunks
    .globl faults_thunks
faults_thunks:
    .set nth, 0
    .rept 2048
    .balign 16
    pushq $nth
    jmp faults_common
    .set nth, nth + 1
    .endr
    .cfi_startproc
    .cfi_def_cfa %rbp, 24
    .cfi_offset %rbp, -24
faults_common:
    pushq %rbp
    movq %rsp, %rbp
    pushq %rax
    pushq %rdi
    pushq %rsi
    pushq %rdx
    pushq %rcx
    pushq %r8
    pushq %r9
    pushq %r10
    subq $136, %rsp
    movups %xmm0, (%rsp)
    movups %xmm1, 16(%rsp)
    movups %xmm2, 32(%rsp)
    movups %xmm3, 48(%rsp)
    movups %xmm4, 64(%rsp)
    movups %xmm5, 80(%rsp)
    movups %xmm6, 96(%rsp)
    movups %xmm7, 112(%rsp)
    movq 8(%rbp), %rdi
    leaq 24(%rbp), %rsi
    movq 16(%rbp), %rdx
    call faults_decide
    movq %rax, %r11
    movups (%rsp), %xmm0
    movups 16(%rsp), %xmm1
    movups 32(%rsp), %xmm2
    movups 48(%rsp), %xmm3
    movups 64(%rsp), %xmm4
    movups 80(%rsp), %xmm5
    movups 96(%rsp), %xmm6
    movups 112(%rsp), %xmm7
    addq $136, %rsp
    popq %r10
    popq %r9
    popq %r8
    popq %rcx
    popq %rdx
    popq %rsi
    popq %rdi
    popq %rax
    popq %rbp
    addq $8, %rsp
    jmp *%r11
    .cfi_endproc
)");
#elif defined(__aarch64__)
__asm__(R"(
    .text
    .balign 16
    .hidden faults_thunks
    .globl faults_thunks
faults_thunks:
    .set nth, 0
    .rept 2048
    .balign 16
    mov x16, #nth
    b faults_common
    .set nth, nth + 1
    .endr
    .cfi_startproc
    .cfi_def_cfa x29, 224
    .cfi_offset x29, -224
    .cfi_offset x30, -216
faults_common:
    stp x29, x30, [sp, #-224]!
    mov x29, sp
    stp x0, x1, [sp, #16]
    stp x2, x3, [sp, #32]
    stp x4, x5, [sp, #48]
    stp x6, x7, [sp, #64]
    str x8, [sp, #80]
    stp q0, q1, [sp, #96]
    stp q2, q3, [sp, #128]
    stp q4, q5, [sp, #160]
    stp q6, q7, [sp, #192]
    mov x0, x16
    add x1, sp, #224
    mov x2, x30
    bl faults_decide
    mov x16, x0
    ldp q0, q1, [sp, #96]
    ldp q2, q3, [sp, #128]
    ldp q4, q5, [sp, #160]
    ldp q6, q7, [sp, #192]
    ldr x8, [sp, #80]
    ldp x0, x1, [sp, #16]
    ldp x2, x3, [sp, #32]
    ldp x4, x5, [sp, #48]
    ldp x6, x7, [sp, #64]
    ldp x29, x30, [sp], #224
    br x16
    .cfi_endproc
)");
#endif

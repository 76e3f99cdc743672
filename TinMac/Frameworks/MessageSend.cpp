// Sending a message: the arguments stay where they are while the method is looked up, and the
// method is entered as if the caller had called it.
__asm__(R"(
.macro LOOK_UP receiver, finder
  stp x29, x30, [sp, #-16]!
  mov x29, sp
  sub sp, sp, #208
  stp \receiver, x1, [sp]
  stp x2, x3, [sp, #16]
  stp x4, x5, [sp, #32]
  stp x6, x7, [sp, #48]
  str x8, [sp, #64]
  stp q0, q1, [sp, #80]
  stp q2, q3, [sp, #112]
  stp q4, q5, [sp, #144]
  stp q6, q7, [sp, #176]
  bl \finder
  mov x17, x0
  ldp x0, x1, [sp]
  ldp x2, x3, [sp, #16]
  ldp x4, x5, [sp, #32]
  ldp x6, x7, [sp, #48]
  ldr x8, [sp, #64]
  ldp q0, q1, [sp, #80]
  ldp q2, q3, [sp, #112]
  ldp q4, q5, [sp, #144]
  ldp q6, q7, [sp, #176]
  mov sp, x29
  ldp x29, x30, [sp], #16
  br x17
.endm

  .text

// id objc_msgSend(id self, SEL selector, ...)
  .globl _objc_msgSend
  .p2align 2
_objc_msgSend:
  cbz x0, 1f
  LOOK_UP x0, _tinMessageLookup
1: // A message to nil answers zeros of every kind.
  mov x1, #0
  movi d0, #0
  movi d1, #0
  movi d2, #0
  movi d3, #0
  ret

// id objc_msgSendSuper2(struct objc_super* receiverAndClass, SEL selector, ...)
  .globl _objc_msgSendSuper2
  .p2align 2
_objc_msgSendSuper2:
  ldr x16, [x0]
  LOOK_UP x16, _tinSuperLookup

  .subsections_via_symbols
)");

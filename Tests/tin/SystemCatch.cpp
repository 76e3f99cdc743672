#include "SystemCatch.h"

// Two functions as a Mac's compiler writes a @try: both call `run` and, when it throws, give the
// exception to `begin`, call `end`, and return what `begin` gave. The first one's clause has the
// type in tinTestCatchType, the second one's catches everything.
__asm__(R"(
  .macro catching name, type
  .text
  .globl \name
  .type \name, %function
\name:
  .cfi_startproc
  .cfi_personality 0x9b, DW.ref.__gxx_personality_v0
  .cfi_lsda 0x1b, .Ltable\@
  stp x29, x30, [sp, #-48]!
  .cfi_def_cfa_offset 48
  .cfi_offset 29, -48
  .cfi_offset 30, -40
  stp x19, x20, [sp, #16]
  .cfi_offset 19, -32
  .cfi_offset 20, -24
  mov x29, sp
  mov x19, x2
  mov x20, x3
  mov x9, x0
  mov x0, x1
.Lcall\@:
  blr x9
.Lreturned\@:
  mov x19, #0
  b .Lout\@
.Lcaught\@:
  blr x19
  mov x19, x0
  blr x20
.Lout\@:
  mov x0, x19
  ldp x19, x20, [sp, #16]
  ldp x29, x30, [sp], #48
  .cfi_restore 19
  .cfi_restore 20
  .cfi_restore 29
  .cfi_restore 30
  .cfi_def_cfa_offset 0
  ret
  .cfi_endproc
  .size \name, . - \name
  .section .gcc_except_table, "a"
  .align 2
.Ltable\@:
  .byte 0xff, 0x9b
  .uleb128 .Ltypes\@ - .Lsites\@
.Lsites\@:
  .byte 1
  .uleb128 .Lactions\@ - .Lfirst\@
.Lfirst\@:
  .uleb128 .Lcall\@ - \name
  .uleb128 .Lreturned\@ - .Lcall\@
  .uleb128 .Lcaught\@ - \name
  .uleb128 1
.Lactions\@:
  .byte 1, 0
  .align 2
  .4byte \type
.Ltypes\@:
  .text
  .endm
  catching tinTestCatchOne, (tinTestCatchType - .)
  catching tinTestCatchAll, 0
  .purgem catching
  .hidden DW.ref.__gxx_personality_v0
  .weak DW.ref.__gxx_personality_v0
  .section .data.rel.local.DW.ref.__gxx_personality_v0, "awG", %progbits, DW.ref.__gxx_personality_v0, comdat
  .align 3
  .type DW.ref.__gxx_personality_v0, %object
DW.ref.__gxx_personality_v0:
  .xword __gxx_personality_v0
  .text
)");

extern "C" {
void* tinTestCatchType = nullptr;
}

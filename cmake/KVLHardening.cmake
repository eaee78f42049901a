# What makes faults in memory harder to use; tests/consumer/hardening.py looks whether it is there.
# Sanitizers find such faults themselves and do not go together with some of it.
include(CheckCXXCompilerFlag)

target_compile_options(kvl_flags INTERFACE -fstack-protector-strong)
check_cxx_compiler_flag(-fcf-protection=full KVL_HAS_CONTROL_FLOW_PROTECTION)
if(KVL_HAS_CONTROL_FLOW_PROTECTION)  # x86 only
  target_compile_options(kvl_flags INTERFACE -fcf-protection=full)
endif()
# Without optimisation the C library has nothing to check with, and warns. Distributions set it, too.
target_compile_options(kvl_flags INTERFACE
  "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
target_link_options(kvl_flags INTERFACE -Wl,-z,relro,-z,now,-z,noexecstack)

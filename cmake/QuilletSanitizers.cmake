# AddressSanitizer and UndefinedBehaviorSanitizer (LeakSanitizer comes with
# ASan on Linux) for the library, its tests and its tools.
if(QUILLET_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined
                      -fno-omit-frame-pointer -g)
  add_link_options(-fsanitize=address,undefined)
endif()

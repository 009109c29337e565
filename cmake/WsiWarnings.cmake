# wsi_warnings(target): the project's warning set, and -Werror when WSI_WERROR is on.
function(wsi_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra)
  if(WSI_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

# Makes the linker's files from the list of exports.

function(zebdc_read_exports list_file result)
  file(STRINGS ${list_file} lines REGEX "^ZEBDC_EXPORT")
  list(TRANSFORM lines REPLACE "^ZEBDC_EXPORT[A-Z_]*\\(([A-Za-z0-9_]+)\\).*" "\\1")
  set(${result} ${lines} PARENT_SCOPE)
endfunction()

function(zebdc_write_export_files list_file version_script definition_file)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${list_file})
  zebdc_read_exports(${list_file} names)
  list(JOIN names ";\n    " script_names)
  file(CONFIGURE OUTPUT ${version_script} CONTENT
    "{\n  global:\n    ${script_names};\n  local:\n    *;\n};\n")
  list(JOIN names "\n  " definition_names)
  file(CONFIGURE OUTPUT ${definition_file} CONTENT
    "LIBRARY \"zebdct7-8.2.dll\"\nEXPORTS\n  ${definition_names}\n")
endfunction()

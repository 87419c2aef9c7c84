# Writes OUTPUT, a table of all SCENES_DIR/*.scene for builtinscenes.h.
file(GLOB scenes ${SCENES_DIR}/*.scene)
list(SORT scenes)
set(rows "")
foreach(scene IN LISTS scenes)
    get_filename_component(name ${scene} NAME_WE)
    file(READ ${scene} text)
    string(APPEND rows "    {\"${name}\", R\"scene(${text})scene\"},\n")
endforeach()
file(WRITE ${OUTPUT}
    "#include \"builtinscenes.h\"\n\nnamespace sim {\n\nconst BuiltinScene s_builtinScenes[] = {\n"
    "${rows}    {nullptr, nullptr},\n};\n\n} // namespace sim\n")

## KEY = tg_key (NAME): the structure field under which the tests' Python
## helpers store NAME: "f_" and NAME with every character that cannot stand
## in a field name replaced by "_". The Python side writes the same key.
function key = tg_key (name)
  key = ["f_" regexprep(name, "[^A-Za-z0-9_]", "_")];
endfunction

function [dir, cleanup] = tg_scratch ()
  ## [DIR, CLEANUP] = tg_scratch (): a fresh directory, removed with all it
  ## holds when CLEANUP goes.
  dir = tempname ();
  [ok, msg] = mkdir (dir);
  if (! ok)
    error ("tiffgate:test", "cannot create %s: %s", dir, msg);
  endif
  cleanup = onCleanup (@() remove_tree (dir));
endfunction

function remove_tree (dir)
  confirm_recursive_rmdir (false, "local");
  [~] = rmdir (dir, "s");
endfunction

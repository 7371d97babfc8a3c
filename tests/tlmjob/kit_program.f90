! As kit_program.c, without the child.
program kit_program
  use tlmjob
  use, intrinsic :: iso_c_binding, only: c_int, c_int64_t
  implicit none
  logical :: go
  integer :: ignored
  ignored = tlmjob_attach()
  call tlmjob_required_level(7_c_int64_t, 8_c_int64_t)
  call tlmjob_progress(-1_c_int)
  call tlmjob_progress(40_c_int)
  call tlmjob_results_available()
  do
    inquire (file='go', exist=go)
    if (go) exit
    if (tlmjob_stop_requested() /= 0) then
      print '(a)', 'stopped'
      stop 3
    end if
  end do
  call tlmjob_succeeded()
  call tlmjob_progress(200_c_int)
  call tlmjob_detach()
end program

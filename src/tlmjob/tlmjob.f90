! The calls of tlmjob.h, which tells what they do, for Fortran. Compile it with your program and link with -ltlmjob.
module tlmjob
  use, intrinsic :: iso_c_binding, only: c_int, c_int64_t
  implicit none
  private
  public :: tlmjob_attach, tlmjob_progress, tlmjob_required_level, tlmjob_results_available
  public :: tlmjob_succeeded, tlmjob_retry, tlmjob_stop_requested, tlmjob_detach

  interface
    integer(c_int) function tlmjob_attach() bind(c)
      import :: c_int
    end function
    subroutine tlmjob_progress(percent) bind(c)
      import :: c_int
      integer(c_int), value :: percent
    end subroutine
    subroutine tlmjob_required_level(type, level) bind(c)
      import :: c_int64_t
      integer(c_int64_t), value :: type, level
    end subroutine
    subroutine tlmjob_results_available() bind(c)
    end subroutine
    subroutine tlmjob_succeeded() bind(c)
    end subroutine
    subroutine tlmjob_retry() bind(c)
    end subroutine
    integer(c_int) function tlmjob_stop_requested() bind(c)
      import :: c_int
    end function
    subroutine tlmjob_detach() bind(c)
    end subroutine
  end interface
end module tlmjob

; Symbols an interpolant may not use: x and y belong to one side each, w to
; no live assertion at all (it is declared only).
(set-logic QF_LIA)
(declare-fun x () Int)
(declare-fun y () Int)
(declare-fun w () Int)
(assert (! (>= x 0) :named A))
(assert (! (= y (+ x 1)) :named B))
(assert (! (< y 0) :named C))
(check-sat)
; 1: right
(get-interpolants A B C)
; 2: A's interpolant uses w (foreign), B's uses x (A-local: only A and B hold it);
; both implications hold
(get-interpolants A B C)
; 3: A's interpolant uses y (B-local: only B and C hold it); its implication holds
(get-interpolants A B C)
